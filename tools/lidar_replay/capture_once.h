// A capture file as the node's source, played once.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "source/pcap_source.h"

namespace kerul::lidar::replay {

// Gives the sensor's datagrams of a capture as fast as they are asked for and passes over all
// others, as the node does with a capture. At the end it clears `running`.
class CaptureOnce : public Source {
 public:
  // `before_each` is called before each datagram is given: all that the node published for the one
  // before is there then. Throws std::runtime_error when the file cannot be read as a capture.
  CaptureOnce(const std::string& path, std::atomic<bool>& running,
              std::function<void()> before_each);

  std::string GetType() override { return "UDP"; }  // a capture would be paused after each frame
  bool Open() override { return true; }
  void Close() override {}
  bool IsOpened() override { return !ended_; }
  void SetClientIp(const std::string&) override {}
  int Send(const std::uint8_t*, std::uint16_t length, int) override { return length; }
  int SetSocketBufferSize(std::uint32_t) override { return 0; }
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override;

 private:
  PcapSource file_;
  std::atomic<bool>& running_;
  std::function<void()> before_each_;
  bool ended_ = false;
};

}  // namespace kerul::lidar::replay
