// Sends point packets to a UDP port of this machine.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "client/point_packet_by_hand.h"
#include "kerul_lidar/udp_point_receiver.h"

namespace kerul::lidar {

class LoopbackSender {
 public:
  explicit LoopbackSender(std::uint16_t port) : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    to_.sin_family = AF_INET;
    to_.sin_port = htons(port);
    to_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  ~LoopbackSender() { close(fd_); }
  LoopbackSender(const LoopbackSender&) = delete;
  LoopbackSender& operator=(const LoopbackSender&) = delete;
  void Send(const PacketBytes& bytes) const {
    sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to_), sizeof to_);
  }

 private:
  int fd_;
  sockaddr_in to_{};
};

// A port that nobody holds now.
inline std::uint16_t FreePort() {
  UdpPointReceiver receiver;
  EXPECT_TRUE(receiver.Open(0));
  return receiver.Port();
}

}  // namespace kerul::lidar
