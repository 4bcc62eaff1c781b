// A receiver of point packets by UDP.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace kerul::lidar::testing {

// Listens on a port of its own on the loopback interface.
class PointReceiver {
 public:
  PointReceiver() : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* address = reinterpret_cast<sockaddr*>(&place);
    socklen_t size = sizeof(place);
    if (bind(fd_, address, size) != 0 || getsockname(fd_, address, &size) != 0) {
      throw std::runtime_error("no port to receive on");
    }
    port_ = ntohs(place.sin_port);
    const int bytes = 1 << 20;  // the kernel grants less, but enough for two rows of two echoes
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
  }
  ~PointReceiver() { close(fd_); }
  PointReceiver(const PointReceiver&) = delete;
  PointReceiver& operator=(const PointReceiver&) = delete;

  std::uint16_t port() const noexcept { return port_; }

  // What has come, oldest first; waits until it is at least `count` datagrams. Once they did
  // not come, nothing is waited for any more: the test has failed by then.
  std::vector<std::vector<std::uint8_t>> Take(std::size_t count) {
    std::vector<std::vector<std::uint8_t>> datagrams;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(gave_up_ ? 0 : 10);
    for (;;) {
      std::uint8_t bytes[2048];
      const ssize_t got = recv(fd_, bytes, sizeof(bytes), MSG_DONTWAIT);
      if (got >= 0) {
        datagrams.emplace_back(bytes, bytes + got);
        continue;
      }
      if (datagrams.size() >= count) break;
      gave_up_ = std::chrono::steady_clock::now() >= deadline;
      if (gave_up_) break;
      pollfd wait{fd_, POLLIN, 0};
      poll(&wait, 1, 100);
    }
    return datagrams;
  }

 private:
  int fd_;
  std::uint16_t port_ = 0;
  bool gave_up_ = false;
};

}  // namespace kerul::lidar::testing
