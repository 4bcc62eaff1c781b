// Plain sockets and captured output for the tests of the UDP source.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace kerul::lidar {

// The local port of a socket, 0 when it has none.
inline std::uint16_t PortOf(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin_port);
}

// A UDP socket of the test's own, bound to a port that the kernel chose, without any option.
class Peer {
 public:
  Peer() : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    EXPECT_EQ(::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval patience{2, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  ~Peer() { ::close(fd_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  std::uint16_t Port() const { return PortOf(fd_); }

  void SendTo(std::uint16_t port, const std::vector<std::uint8_t>& bytes) const {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::sendto(fd_, bytes.data(), bytes.size(), 0,
                       reinterpret_cast<const sockaddr*>(&address), sizeof address),
              static_cast<ssize_t>(bytes.size()));
  }

  // Empty when nothing comes.
  std::vector<std::uint8_t> Take() const {
    std::vector<std::uint8_t> bytes(2000);
    const ssize_t received = ::recv(fd_, bytes.data(), bytes.size(), 0);
    bytes.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return bytes;
  }

 private:
  int fd_;
};

// A port that was free a moment ago.
inline std::uint16_t FreePort() { return Peer().Port(); }

inline std::size_t OpenDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

// The datagram sockets of this process, bound or not.
inline std::vector<int> OpenSockets() {
  std::vector<int> sockets;
  for (int fd = 0; fd < 64; ++fd) {
    int type = 0;
    socklen_t size = sizeof type;
    if (::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM) {
      sockets.push_back(fd);
    }
  }
  return sockets;
}

// What `action` prints on standard output.
template <typename Action>
std::string Printed(Action action) {
  ::testing::internal::CaptureStdout();
  action();
  std::fflush(stdout);
  return ::testing::internal::GetCapturedStdout();
}

// What `action` prints on standard error.
template <typename Action>
std::string PrintedAsError(Action action) {
  ::testing::internal::CaptureStderr();
  action();
  return ::testing::internal::GetCapturedStderr();
}

// The descriptor named in the line of a successful Open, -1 without such a line.
inline int DescriptorIn(const std::string& printed) {
  int fd = -1;
  const std::size_t at = printed.find("SocketSource::Open succeed, sock:");
  if (at != std::string::npos) {
    std::sscanf(printed.c_str() + at, "SocketSource::Open succeed, sock:%d\n", &fd);
  }
  return fd;
}

inline int IntOption(int fd, int option) {
  int value = -1;
  socklen_t size = sizeof value;
  EXPECT_EQ(::getsockopt(fd, SOL_SOCKET, option, &value, &size), 0);
  return value;
}

}  // namespace kerul::lidar
