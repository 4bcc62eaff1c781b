#include "sensor_simulator/udp_sender.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace kerul::lidar::simulator {
namespace {

constexpr std::size_t kBatch = 32;
constexpr int kSendBufferBytes = 4 << 20;

}  // namespace

UdpSender::UdpSender(const std::string& dest_ip, std::uint16_t dest_port) {
  dest_.sin_family = AF_INET;
  dest_.sin_port = htons(dest_port);
  if (inet_pton(AF_INET, dest_ip.c_str(), &dest_.sin_addr) != 1) {
    throw std::invalid_argument("not an IPv4 address: " + dest_ip);
  }
  // Not connected: a receiver that is not there yet must not make the next datagram fail.
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  if (socket_ < 0 || setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
    const std::string reason = std::strerror(errno);
    if (socket_ >= 0) close(socket_);
    throw std::runtime_error("cannot send to " + dest_ip + ": " + reason);
  }
  // The system may grant less.
  setsockopt(socket_, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
}

UdpSender::~UdpSender() { close(socket_); }

void UdpSender::SendBatch(std::span<const Datagram> datagrams) {
  std::array<iovec, kBatch> parts{};
  std::array<mmsghdr, kBatch> messages{};
  for (std::size_t i = 0; i < datagrams.size(); ++i) {
    parts[i] = {const_cast<std::uint8_t*>(datagrams[i].data()), datagrams[i].size()};
    messages[i].msg_hdr.msg_name = &dest_;
    messages[i].msg_hdr.msg_namelen = sizeof dest_;
    messages[i].msg_hdr.msg_iov = &parts[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  std::size_t done = 0;
  while (done < datagrams.size()) {
    const int count =
        sendmmsg(socket_, &messages[done], static_cast<unsigned>(datagrams.size() - done), 0);
    if (count > 0) {
      for (int i = 0; i < count; ++i) bytes_ += datagrams[done++].size();
      sent_ += static_cast<std::uint64_t>(count);
      continue;
    }
    if (errno == EINTR) continue;
    ++failed_;
    ++done;
  }
}

void UdpSender::SendPaced(std::span<const Datagram> datagrams,
                          std::chrono::steady_clock::time_point start,
                          std::chrono::nanoseconds span) {
  for (std::size_t first = 0; first < datagrams.size(); first += kBatch) {
    const double share = static_cast<double>(first) / static_cast<double>(datagrams.size());
    const auto due = start + std::chrono::nanoseconds(static_cast<std::int64_t>(
                                 share * static_cast<double>(span.count())));
    std::this_thread::sleep_until(due);
    SendBatch(datagrams.subspan(first, std::min(kBatch, datagrams.size() - first)));
  }
}

}  // namespace kerul::lidar::simulator
