// Capture files of the classic format (microseconds, Ethernet), one UDP datagram to a frame.
#pragma once

#include <array>
#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <vector>

namespace kerul::lidar::simulator {

// IPv4 addresses as written, ports in host order. The sensor broadcasts by default: such frames
// can be replayed onto any interface, the loopback one included.
struct CaptureEndpoints {
  std::string source_ip = "192.168.1.201";
  std::string dest_ip = "255.255.255.255";
  std::uint16_t source_port = 2368;
  std::uint16_t dest_port = 2368;
};

// Ethernet, IPv4 and UDP headers with their checksums, and the payload after them.
// identification: of the IPv4 header. Throws std::invalid_argument when an address cannot be read
// or the payload does not fit one Ethernet frame (1472 bytes).
std::vector<std::uint8_t> BuildUdpFrame(const CaptureEndpoints& endpoints,
                                        std::span<const std::uint8_t> payload,
                                        std::uint16_t identification);

class CaptureWriter {
 public:
  // Creates or empties the file. Throws std::runtime_error when it cannot be written, here or at
  // any later call.
  CaptureWriter(const std::string& path, const CaptureEndpoints& endpoints);

  // time_us: since 1970.
  void Write(std::uint64_t time_us, std::span<const std::uint8_t> payload);
  void Close();

 private:
  std::string path_;
  CaptureEndpoints endpoints_;
  std::ofstream file_;
  std::uint16_t identification_ = 0;
};

}  // namespace kerul::lidar::simulator
