#include "lidar_record/backlog.h"

#include <utility>

namespace kerul::lidar::record {

void Backlog::Add(mcap::Chunk&& chunk, Clock::time_point arrival) {
  bytes_ += chunk.bytes.size();
  entries_.push_back({std::move(chunk), arrival});
  while (entries_.front().arrival + span_ < arrival) DropOldest();
  while (bytes_ > room_bytes_ && entries_.size() > 1) {
    DropOldest();
    ++dropped_early_;
  }
}

void Backlog::DropOldest() {
  bytes_ -= entries_.front().chunk.bytes.size();
  entries_.pop_front();
}

Backlog::Clock::duration Backlog::Span() const {
  if (entries_.empty()) return Clock::duration::zero();
  return entries_.back().arrival - entries_.front().arrival;
}

}  // namespace kerul::lidar::record
