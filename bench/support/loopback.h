// Datagrams over the loopback interface, into the node's own socket source.
#pragma once

#include <cstdint>
#include <memory>

#include "source/socket_source.h"
#include "support/bench_input.h"

namespace kerul::lidar::bench {

// A UDP port that was free a moment ago. Throws std::runtime_error.
std::uint16_t FreePort();

// Sends to a port of this machine. Throws std::runtime_error when that fails.
class LoopbackSender {
 public:
  explicit LoopbackSender(std::uint16_t port);
  ~LoopbackSender();
  LoopbackSender(const LoopbackSender&) = delete;
  LoopbackSender& operator=(const LoopbackSender&) = delete;
  void Send(const RawPacket& packet) const;

 private:
  int socket_;
};

// An open source with a sender to it.
class LoopbackLink {
 public:
  LoopbackLink() : LoopbackLink(FreePort()) {}
  void Send(const RawPacket& packet) const { sender_.Send(packet); }
  SocketSource& source() { return source_; }

 private:
  explicit LoopbackLink(std::uint16_t port) : source_(port, ""), sender_(port) { source_.Open(); }
  SocketSource source_;
  LoopbackSender sender_;
};

}  // namespace kerul::lidar::bench
