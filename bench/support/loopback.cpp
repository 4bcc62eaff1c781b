#include "support/loopback.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace kerul::lidar::bench {
namespace {

sockaddr_in LoopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

std::uint16_t FreePort() {
  const int probe = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address = LoopbackAddress(0);
  socklen_t size = sizeof address;
  const bool bound = ::bind(probe, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                     ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
  ::close(probe);
  if (!bound) throw std::runtime_error("no free UDP port");
  return ntohs(address.sin_port);
}

LoopbackSender::LoopbackSender(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
  const sockaddr_in address = LoopbackAddress(port);
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot send over the loopback interface");
  }
}

LoopbackSender::~LoopbackSender() { ::close(socket_); }

void LoopbackSender::Send(const RawPacket& packet) const {
  if (::send(socket_, packet.data(), packet.size(), 0) < 0) {
    throw std::runtime_error("sending over the loopback interface failed");
  }
}

}  // namespace kerul::lidar::bench
