// Receives point packets from a UDP port.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "kerul_lidar/received_packet.h"

namespace kerul::lidar {

class UdpPointReceiver {
 public:
  UdpPointReceiver() = default;
  ~UdpPointReceiver();
  UdpPointReceiver(const UdpPointReceiver&) = delete;
  UdpPointReceiver& operator=(const UdpPointReceiver&) = delete;

  // Binds `port` on all addresses (0: any free port), and joins the multicast group if one is
  // named. False with the reason in Error().
  bool Open(std::uint16_t port, const std::string& multicast_group = "");
  void Close();
  bool IsOpened() const noexcept { return fd_ >= 0; }
  std::uint16_t Port() const noexcept { return port_; }
  const std::string& Error() const noexcept { return error_; }

  // Waits up to `timeout` for one datagram. False when none came. A datagram of more than 1500
  // bytes or of none is dropped and counted.
  bool Receive(ReceivedPacket& packet, std::chrono::milliseconds timeout);
  std::uint64_t Dropped() const noexcept { return dropped_; }

 private:
  bool Fail(const char* what);
  bool Join(const std::string& group);

  int fd_ = -1;
  std::uint16_t port_ = 0;
  std::uint64_t dropped_ = 0;
  std::string error_;
};

}  // namespace kerul::lidar
