// What a consumer makes of a ring: whole frames.
#pragma once

#include <chrono>
#include <cstdint>

#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "support/child_process.h"

namespace kerul::lidar::testing {

class RingTap {
 public:
  // A null name is the default ring.
  explicit RingTap(const char* name = nullptr) : reader_(name, RingStart::kOldest) {}

  // The next frame that was closed, complete or not; null when time ends before.
  const CollectedFrame* NextFrame(std::chrono::milliseconds timeout = kPatience);
  // The next complete frame; null when time ends before. A frame that another one closed, or that
  // had begun before this reader came, is passed over. Valid until the next call.
  const CollectedFrame* NextComplete(std::chrono::milliseconds timeout = kPatience);

  const RingStatistics& Ring() const noexcept { return reader_.Statistics(); }
  const FrameStatistics& Frames() const noexcept { return collector_.Statistics(); }
  // Packets that were no point packets.
  std::uint64_t Refused() const noexcept { return refused_; }

 private:
  const CollectedFrame* Take(const ReceivedPacket& packet);

  ShmRingReader reader_;
  FrameCollector collector_;
  std::uint64_t refused_ = 0;
  std::uint64_t attached_ = 0;
};

// Points of the frame that hold a return.
int CountReturns(const CollectedFrame& frame);

}  // namespace kerul::lidar::testing
