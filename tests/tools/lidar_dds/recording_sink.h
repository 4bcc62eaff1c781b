// A sink that keeps what is written to it.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "lidar_dds/message_sink.h"

namespace kerul::lidar::dds {

// May hold every write until it is let go, or refuse it.
class RecordingSink : public MessageSink {
 public:
  bool Write(MessageKind kind, std::span<const std::uint8_t> message) override {
    std::unique_lock lock(mutex_);
    ++begun;
    changed_.notify_all();
    changed_.wait(lock, [&] { return !held_; });
    if (refuses) return false;
    written[kind].emplace_back(message.begin(), message.end());
    return true;
  }
  int Subscribers(MessageKind kind) override { return subscribers[kind]; }

  void Hold() {
    const std::lock_guard lock(mutex_);
    held_ = true;
  }
  void LetGo() {
    const std::lock_guard lock(mutex_);
    held_ = false;
    changed_.notify_all();
  }
  bool WaitUntilAWriteIsHeld() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(60), [&] { return begun > 0; });
  }

  std::array<int, kMessageKinds> subscribers{1, 1, 1};
  std::array<std::vector<std::vector<std::uint8_t>>, kMessageKinds> written;
  bool refuses = false;
  int begun = 0;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool held_ = false;
};

}  // namespace kerul::lidar::dds
