// A peer that speaks bytes, not a protocol.
#pragma once

#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace kerul::lidar {

enum class PeerEnd { kKeepOpen, kClose };

// Accepts one connection on a free port of the loopback, takes `request_bytes`, sends `answer`, and
// then closes or waits until the other side does.
class WirePeer {
 public:
  WirePeer(std::size_t request_bytes, std::vector<std::uint8_t> answer, PeerEnd end);
  ~WirePeer();
  WirePeer(const WirePeer&) = delete;
  WirePeer& operator=(const WirePeer&) = delete;

  int port() const { return port_; }
  // Everything that came, complete once the connection has ended on both sides.
  const std::vector<std::uint8_t>& Received();

 private:
  void Serve(std::size_t request_bytes, const std::vector<std::uint8_t>& answer, PeerEnd end);

  int listener_;
  int port_;
  std::vector<std::uint8_t> received_;
  std::thread thread_;
};

// A port of the loopback without a listener: it was free a moment ago.
int ClosedPort();

}  // namespace kerul::lidar
