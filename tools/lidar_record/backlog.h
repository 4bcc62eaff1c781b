// The last seconds of the stream, compressed, in memory.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "mcap/chunk.h"

namespace kerul::lidar::record {

class Backlog {
 public:
  using Clock = std::chrono::steady_clock;

  // Keeps what came up to `span` before the newest, and `room_bytes` at most; the newest chunk is
  // always kept.
  Backlog(Clock::duration span, std::size_t room_bytes) : span_(span), room_bytes_(room_bytes) {}

  void Add(mcap::Chunk&& chunk, Clock::time_point arrival);

  struct Entry {
    mcap::Chunk chunk;
    Clock::time_point arrival;
  };
  const std::deque<Entry>& Entries() const noexcept { return entries_; }
  std::size_t Bytes() const noexcept { return bytes_; }
  // From the oldest to the newest.
  Clock::duration Span() const;
  // Chunks that were dropped for want of room before their time.
  std::uint64_t DroppedEarly() const noexcept { return dropped_early_; }

 private:
  void DropOldest();

  Clock::duration span_;
  std::size_t room_bytes_;
  std::deque<Entry> entries_;
  std::size_t bytes_ = 0;
  std::uint64_t dropped_early_ = 0;
};

}  // namespace kerul::lidar::record
