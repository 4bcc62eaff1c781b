// The thread that writes to the network, so that nobody else waits for it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "lidar_dds/hand_over.h"
#include "lidar_dds/message_sink.h"

namespace kerul::lidar::dds {

class Publisher {
 public:
  // Starts the thread, the only one that calls `sink` until Finish. The sink must outlive it.
  explicit Publisher(MessageSink& sink);
  // Finishes.
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  // Never waits for the network (hand_over.h).
  void Put(MessageSet& messages) { frames_.Put(messages); }
  // Sends what was put and ends the thread.
  void Finish();

  // As the thread last saw it, at most some 20 ms ago, or a write ago.
  int Subscribers(MessageKind kind) const noexcept { return subscribers_[kind]; }
  // Frames of which every message was written.
  std::uint64_t Written() const noexcept { return written_; }
  // Frames that were not sent because subscribers, or the network, did not keep up.
  std::uint64_t LeftOut() const { return frames_.LeftOut() + refused_; }

 private:
  void Run();
  void Look();
  void Write(const MessageSet& messages);

  MessageSink& sink_;
  HandOver frames_;
  std::array<std::atomic<int>, kMessageKinds> subscribers_{};
  std::atomic<std::uint64_t> written_{0};
  std::atomic<std::uint64_t> refused_{0};
  std::thread thread_;
};

}  // namespace kerul::lidar::dds
