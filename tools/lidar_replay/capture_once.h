// A capture file as the node's source, played once.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "source/pcap_source.h"
#include "support/inert_source.h"

namespace kerul::lidar::replay {

// Gives the sensor's datagrams of a capture as fast as they are asked for and passes over all
// others, as the node does with a capture. At the end it clears `running`.
class CaptureOnce : public InertSource {
 public:
  // `before_each` is called before each datagram is given: all that the node published for the one
  // before is there then. Throws std::runtime_error when the file cannot be read as a capture.
  CaptureOnce(const std::string& path, std::atomic<bool>& running,
              std::function<void()> before_each);

  bool IsOpened() override { return !ended_; }
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override;

 private:
  PcapSource file_;
  std::atomic<bool>& running_;
  std::function<void()> before_each_;
  bool ended_ = false;
};

}  // namespace kerul::lidar::replay
