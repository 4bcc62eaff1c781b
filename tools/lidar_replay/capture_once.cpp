#include "lidar_replay/capture_once.h"

#include <iostream>
#include <utility>

namespace kerul::lidar::replay {
namespace {

// The node takes no shorter datagram of a capture for the sensor's, and none without its magic.
constexpr int kSmallestDatagram = 11;

bool IsSensorDatagram(const UdpPacket& packet, int length) {
  return length >= kSmallestDatagram && packet.buffer[0] == 0xEE && packet.buffer[1] == 0xFF;
}

}  // namespace

CaptureOnce::CaptureOnce(const std::string& path, std::atomic<bool>& running,
                         std::function<void()> before_each)
    : file_(path), running_(running), before_each_(std::move(before_each)) {
  file_.Open();
}

int CaptureOnce::Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) {
  before_each_();
  while (!ended_) {
    const int received = file_.Receive(packet, length, flags, timeout_us);
    if (received >= 1 && IsSensorDatagram(packet, received)) return received;
    // Before the end of the file this is a record that was cut, by a recording that was killed.
    ended_ = received == -1;
    if (ended_ && file_.IsOpened()) {
      std::cerr << "[WARN] the capture is cut in its last record" << std::endl;
    }
  }
  running_ = false;
  return -1;
}

}  // namespace kerul::lidar::replay
