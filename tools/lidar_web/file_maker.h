// Makes what clients ask for, on a thread of its own: a picture takes longer than the stream can
// wait.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <utility>
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
  int row = 0;  // of a story's pixel
  int col = 0;
  // The result; not to be looked at before `done`.
  std::vector<char> file;
  std::string error;  // empty: the file is there
  int status = 500;   // of HTTP, for an error
  std::atomic<bool> done{false};

  // The frame's whole message.
  std::span<const char> Message() const {
    return frame ? frame->View() : std::span<const char>(body);
  }
};

class FileMaker {
 public:
  // Makes one file, or tells why not. `wanted` says whether anybody still waits for it.
  using Make = std::function<void(FileJob& job, const std::function<bool()>& wanted)>;

  // `most_jobs`: that wait or are not yet sent, all clients together.
  FileMaker(std::string name, std::size_t most_jobs, Make make, std::function<void()> on_done)
      : name_(std::move(name)),
        most_jobs_(most_jobs),
        make_(std::move(make)),
        on_done_(std::move(on_done)),
        thread_(&FileMaker::Run, this) {}
  ~FileMaker();

  // The job belongs to both until the caller lets go of it. False when there are too many.
  bool Add(const std::shared_ptr<FileJob>& job);

 private:
  void Run();

  std::string name_;  // of the thread
  std::size_t most_jobs_;
  Make make_;
  std::function<void()> on_done_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<FileJob>> waiting_;
  std::vector<std::weak_ptr<FileJob>> alive_;
  std::atomic<bool> stop_{false};
  std::thread thread_;  // last: it uses the others
};

// Makes the file that the job names.
void MakeFile(FileJob& job, const ViewGeometry& geometry);

}  // namespace kerul::lidar::web
