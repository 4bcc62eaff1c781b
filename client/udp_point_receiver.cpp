#include "kerul_lidar/udp_point_receiver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kerul::lidar {
namespace {

// A frame of two echoes is 3456 datagrams of 249 bytes, which the kernel accounts with more than
// twice their size. A lower system limit is no failure.
constexpr int kSocketBufferBytes = 8 << 20;

}  // namespace

UdpPointReceiver::~UdpPointReceiver() { Close(); }

bool UdpPointReceiver::Open(std::uint16_t port, const std::string& multicast_group) {
  Close();
  fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return Fail("socket");
  setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &kSocketBufferBytes, sizeof kSocketBufferBytes);

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  socklen_t size = sizeof address;
  if (bind(fd_, reinterpret_cast<sockaddr*>(&address), size) != 0) return Fail("bind");
  if (getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return Fail("getsockname");
  }
  port_ = ntohs(address.sin_port);
  return multicast_group.empty() || Join(multicast_group);
}

bool UdpPointReceiver::Join(const std::string& group) {
  ip_mreq request{};
  request.imr_interface.s_addr = htonl(INADDR_ANY);
  if (inet_pton(AF_INET, group.c_str(), &request.imr_multiaddr) != 1) {
    errno = EINVAL;
    return Fail("multicast group");
  }
  if (setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) != 0) {
    return Fail("multicast group");
  }
  return true;
}

bool UdpPointReceiver::Fail(const char* what) {
  const int error = errno;
  Close();
  error_ = std::string(what) + ": " + std::strerror(error);
  return false;
}

void UdpPointReceiver::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
  port_ = 0;
}

bool UdpPointReceiver::Receive(ReceivedPacket& packet, std::chrono::milliseconds timeout) {
  using Clock = std::chrono::steady_clock;
  if (fd_ < 0) return false;
  const Clock::time_point deadline = Clock::now() + timeout;
  for (;;) {
    // MSG_TRUNC makes the result the datagram's own length, even if it did not fit.
    const ssize_t length = recv(fd_, packet.bytes, kReceivedPacketRoom, MSG_DONTWAIT | MSG_TRUNC);
    if (length > 0 && length <= ssize_t{kReceivedPacketRoom}) {
      packet.number = 0;
      packet.length = static_cast<std::uint16_t>(length);
      return true;
    }
    if (length >= 0) {
      ++dropped_;
      if (Clock::now() >= deadline) return false;
      continue;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd waiting{fd_, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(std::min<std::int64_t>(left.count(), 1000))) < 0 &&
        errno == EINTR) {
      return false;  // let the caller look at what interrupted it
    }
  }
}

}  // namespace kerul::lidar
