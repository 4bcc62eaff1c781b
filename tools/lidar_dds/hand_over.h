// Frames handed from the thread that reads the ring to the one that writes to the network.
//
// The giver never waits for the taker: where there is no room, the oldest frame makes it, because a
// subscriber that fell behind is served best with the newest. One giver, one taker.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "lidar_dds/message_sink.h"

namespace kerul::lidar::dds {

class HandOver {
 public:
  // Room for this many frames, at least one.
  explicit HandOver(std::size_t room);

  // Swaps the frame in; `messages` holds a used buffer of arbitrary content then. Does nothing
  // after Close.
  void Put(MessageSet& messages);
  // Swaps the oldest frame out, waiting up to `timeout` for one. False when there is none.
  bool Take(MessageSet& messages, std::chrono::milliseconds timeout);
  // No more frames come; those that are there can still be taken.
  void Close();
  // Closed, and everything was taken.
  bool IsOver() const;
  // Frames that made room for newer ones.
  std::uint64_t LeftOut() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<MessageSet> slots_;
  std::size_t oldest_ = 0;
  std::size_t count_ = 0;
  std::uint64_t left_out_ = 0;
  bool closed_ = false;
};

}  // namespace kerul::lidar::dds
