#include "lidar_dds/hand_over.h"

#include <algorithm>
#include <utility>

namespace kerul::lidar::dds {

HandOver::HandOver(std::size_t room) : slots_(std::max<std::size_t>(room, 1)) {}

void HandOver::Put(MessageSet& messages) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    if (count_ == slots_.size()) {
      oldest_ = (oldest_ + 1) % slots_.size();
      --count_;
      ++left_out_;
    }
    std::swap(slots_[(oldest_ + count_) % slots_.size()], messages);
    ++count_;
  }
  changed_.notify_one();
}

bool HandOver::Take(MessageSet& messages, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  if (!changed_.wait_for(lock, timeout, [&] { return count_ > 0 || closed_; })) return false;
  if (count_ == 0) return false;
  std::swap(slots_[oldest_], messages);
  oldest_ = (oldest_ + 1) % slots_.size();
  --count_;
  return true;
}

void HandOver::Close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  changed_.notify_one();
}

bool HandOver::IsOver() const {
  const std::lock_guard lock(mutex_);
  return closed_ && count_ == 0;
}

std::uint64_t HandOver::LeftOut() const {
  const std::lock_guard lock(mutex_);
  return left_out_;
}

}  // namespace kerul::lidar::dds
