#include "datagram_sender.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>

namespace kerul::lidar::testing {
namespace {

sockaddr_in Address(const std::string& ip, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) {
    throw std::runtime_error("no address: " + ip);
  }
  return address;
}

void SendTo(int fd, const std::vector<std::uint8_t>& bytes) {
  const sockaddr_in node = Address("127.0.0.1", kNodePort);
  const ssize_t sent = sendto(fd, bytes.data(), bytes.size(), 0,
                              reinterpret_cast<const sockaddr*>(&node), sizeof(node));
  if (sent != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("not sent");
}

}  // namespace

DatagramSender::DatagramSender(const std::string& from)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      raw_socket_(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_UDP)) {
  const sockaddr_in local = Address(from, 0);
  if (bind(socket_, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
    throw std::runtime_error("cannot send from " + from);
  }
}

DatagramSender::~DatagramSender() {
  close(socket_);
  if (raw_socket_ >= 0) close(raw_socket_);
}

void DatagramSender::Send(const std::vector<std::uint8_t>& payload) const {
  SendTo(socket_, payload);
}

void DatagramSender::SendDamaged() const {
  // The checksum of a short datagram is checked as it comes, that of a long one as it is read.
  constexpr std::uint8_t kBytes = 200;
  constexpr std::uint8_t kHigh = kNodePort >> 8U;
  constexpr std::uint8_t kLow = kNodePort & 0xFFU;
  // Source port, destination port, length, checksum; 0x0001 is not that of these bytes.
  constexpr std::array<std::uint8_t, 8> kHeader{0x12, 0x34, kHigh, kLow, 0, kBytes, 0, 1};
  std::vector<std::uint8_t> datagram(kBytes, 0x55);
  std::copy(kHeader.begin(), kHeader.end(), datagram.begin());
  SendTo(raw_socket_, datagram);
}

}  // namespace kerul::lidar::testing
