// Messages on their way from the thread that reads the stream to the thread that writes the disk.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "mcap/records.h"

namespace kerul::lidar::record {

struct QueuedMessage {
  mcap::MessageHeader header;
  mcap::Bytes data;
  std::chrono::steady_clock::time_point arrival;
  bool is_save_request = false;  // no message: what is kept is to be written now
};

// One thread puts, one takes.
class MessageQueue {
 public:
  // Holds messages of this many bytes at most; one message always has room.
  explicit MessageQueue(std::size_t room_bytes) : room_bytes_(room_bytes) {}

  // False, and the message stays the caller's, when there is no room. Never waits for the disk.
  bool TryPut(QueuedMessage& message);
  // Waits for room; false when the other side has closed.
  bool Put(QueuedMessage& message);
  // A request needs no room.
  void PutSaveRequest();
  // The next message; waits for it. False when nothing more comes.
  bool Take(QueuedMessage& message);
  // Gives the memory of a message back for the next one.
  void Recycle(mcap::Bytes&& data);
  // An empty buffer, of a message that was written before if there is one.
  mcap::Bytes Buffer();

  // Nothing more is put: Take gives what is left, then false.
  void CloseInput();
  // Nothing more is taken: Put and TryPut give false.
  void CloseOutput();

 private:
  bool HasRoom(std::size_t bytes) const { return used_ == 0 || used_ + bytes <= room_bytes_; }
  void Append(QueuedMessage& message);

  const std::size_t room_bytes_;
  std::mutex mutex_;
  std::condition_variable filled_;
  std::condition_variable emptied_;
  std::deque<QueuedMessage> messages_;
  std::vector<mcap::Bytes> spare_;
  std::size_t used_ = 0;
  bool input_closed_ = false;
  bool output_closed_ = false;
};

}  // namespace kerul::lidar::record
