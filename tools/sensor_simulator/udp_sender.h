// Datagrams onto the network at a steady pace.
#pragma once

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "sensor_simulator/stream_faults.h"

namespace kerul::lidar::simulator {

class UdpSender {
 public:
  // Throws std::invalid_argument for an address that cannot be read and std::runtime_error when
  // there is no socket to be had.
  UdpSender(const std::string& dest_ip, std::uint16_t dest_port);
  ~UdpSender();
  UdpSender(const UdpSender&) = delete;
  UdpSender& operator=(const UdpSender&) = delete;

  // Sends all of them in small batches, evenly from `start` on over `span`. Late batches go out at
  // once. Waits while the socket's buffer is full; a datagram that the system refuses is counted
  // and skipped.
  void SendPaced(std::span<const Datagram> datagrams, std::chrono::steady_clock::time_point start,
                 std::chrono::nanoseconds span);

  std::uint64_t sent() const noexcept { return sent_; }
  std::uint64_t failed() const noexcept { return failed_; }
  std::uint64_t bytes() const noexcept { return bytes_; }

 private:
  void SendBatch(std::span<const Datagram> datagrams);

  sockaddr_in dest_{};
  int socket_ = -1;
  std::uint64_t sent_ = 0;
  std::uint64_t failed_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace kerul::lidar::simulator
