// Makes the files that clients ask for, on a thread of its own: a picture takes longer than the
// stream can wait.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lidar_web/frame_files.h"

namespace kerul::lidar::web {

struct FileJob {
  // What to make.
  FrameHeader header;
  std::shared_ptr<const FrameMessage> frame;  // or, if null, the message in `body`
  std::vector<char> body;
  FileFormat format = FileFormat::kPng;
  bool floats = false;
  // The result; not to be looked at before `done`.
  std::vector<char> file;
  std::string error;  // empty: the file is there
  std::atomic<bool> done{false};
};

class FileMaker {
 public:
  // Files that wait or are not yet sent, all clients together.
  static constexpr int kMostJobs = 8;

  FileMaker(const ViewGeometry& geometry, std::function<void()> on_done)
      : geometry_(geometry), on_done_(std::move(on_done)), thread_(&FileMaker::Run, this) {}
  ~FileMaker();

  // The job belongs to both until the caller lets go of it. False when there are too many.
  bool Add(const std::shared_ptr<FileJob>& job);

 private:
  void Run();

  const ViewGeometry& geometry_;
  std::function<void()> on_done_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<FileJob>> waiting_;
  std::vector<std::weak_ptr<FileJob>> alive_;
  bool stop_ = false;
  std::thread thread_;  // last: it uses the others
};

}  // namespace kerul::lidar::web
