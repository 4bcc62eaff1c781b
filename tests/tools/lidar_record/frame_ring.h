// A ring with frames of known points, as a node writes it.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "client/point_packet_by_hand.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"

namespace kerul::lidar::record {

inline constexpr std::uint32_t kFirstFrameSeconds = 1'700'000'000;

class FrameRing {
 public:
  explicit FrameRing(std::uint32_t slots = 20'000)
      : writer_(name_.c_str(), 20 + slots * 1508), opened_(writer_.Open()) {}

  bool IsOpen() const { return opened_; }
  const char* Name() const { return name_.c_str(); }
  // The next frame: its first packet is stamped a tenth of a second after that of the frame before,
  // its last one 50 ms after its first. Point i of each block is (250 + i) * 4 mm away.
  void WriteFrame() {
    PacketFields fields;
    fields.frame_id = count_ % 256;
    fields.sequence_base = static_cast<std::uint32_t>(1728 * count_);
    fields.mode = 12;
    fields.payload = {static_cast<std::uint8_t>(count_), 0, 0};
    const auto tenths = static_cast<std::uint32_t>(count_);
    fields.seconds = kFirstFrameSeconds + tenths / 10;
    for (fields.block = 0; fields.block < 1728; ++fields.block) {
      const bool last = fields.block == 1727;
      fields.microseconds = tenths % 10 * 100'000 + (last ? 50'000 : 0);
      const PacketBytes bytes = MakePacket(fields);
      writer_.WriteOne(bytes.data(), 249);
    }
    ++count_;
  }

 private:
  ShmTestName name_;
  ShmUdpWriter writer_;
  bool opened_;
  int count_ = 0;
};

// Writes frames into a ring until it goes away.
class RingFeeder {
 public:
  explicit RingFeeder(FrameRing& ring) : thread_([this, &ring] { Run(ring); }) {}
  ~RingFeeder() {
    stop_ = true;
    thread_.join();
  }
  RingFeeder(const RingFeeder&) = delete;
  RingFeeder& operator=(const RingFeeder&) = delete;

 private:
  void Run(FrameRing& ring) const {
    while (!stop_) {
      ring.WriteFrame();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace kerul::lidar::record
