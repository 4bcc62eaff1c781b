// The thread that compresses and writes.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lidar_record/backlog.h"
#include "lidar_record/message_queue.h"
#include "lidar_record/record_options.h"
#include "lidar_record/recording.h"

namespace kerul::lidar::record {

// As far as it is written, or kept in memory.
struct RecorderState {
  std::uint64_t messages = 0;  // written
  std::uint64_t bytes = 0;
  std::uint64_t files = 0;
  std::string path;  // of the file written last
  std::uint64_t kept_messages = 0;
  std::uint64_t kept_bytes = 0;
  double kept_seconds = 0.0;
};

// What its user is told of at once.
struct RecorderEvent {
  bool is_error = false;
  std::string text;
};

class Recorder {
 public:
  // Starts the thread. What is taken from `queue` is a chunk each; it is written at once, or kept
  // for save requests with Mode::kOnSignal. `recording` and `queue` must outlive the recorder and
  // are its own until Stop.
  Recorder(const RecordOptions& options, MessageQueue& queue, Recording& recording);
  ~Recorder() { Stop(); }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  RecorderState State();
  // Those since the last call.
  std::vector<RecorderEvent> TakeEvents();
  // Whether writing has failed for good. With Mode::kOnSignal it goes on: the next request may find
  // room.
  bool HasFailed() const noexcept { return failed_; }
  // Closes the queue and waits until all of it is written. The file in hand stays open.
  void Stop();

 private:
  void Run();
  void TakeMessage(QueuedMessage& message);
  void Save();
  void Publish();
  void Note(bool is_error, const std::string& text);

  const bool keeps_;
  mcap::ChunkBuilder builder_;
  MessageQueue& queue_;
  Recording& recording_;
  Backlog backlog_;
  std::atomic<bool> failed_{false};
  std::mutex mutex_;
  RecorderState state_;
  std::vector<RecorderEvent> events_;
  std::thread thread_;
};

// The level that a compression is used with.
int CompressionLevel(mcap::Compression compression) noexcept;

}  // namespace kerul::lidar::record
