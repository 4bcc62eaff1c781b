// Packets over UDP: the live input, and with its send side the output of point packets.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "source/source.h"

namespace kerul::lidar {

// Owns one descriptor. Used by one thread at a time. Failures are a message and -1 or false; only
// a destination shorter than three characters throws (std::out_of_range).
class SocketSource : public Source {
 public:
  // `port`: where Open binds and where Send sends. `multicast_ip`: group to join, empty for none.
  SocketSource(std::uint16_t port, const std::string& multicast_ip);
  ~SocketSource() override;

  std::string GetType() override;  // "UDP"
  // A non-blocking socket bound to the port on every interface, with the largest receive buffer
  // that the kernel grants. Closes an earlier descriptor first. False: no socket, the port is
  // taken, or an option failed; in the last case the socket stays and IsOpened is true.
  bool Open() override;
  void Close() override;  // also forgets port and destination
  bool IsOpened() override;
  // Makes this a sending source: the socket of Open is replaced by a plain unbound one. An address
  // that ends in "255" is a broadcast.
  void SetClientIp(const std::string& ip) override;
  // A new socket for the same destination, after a failing send has closed the source and forgotten
  // the port. For callers who can lose the packets in between.
  void OpenToSendAgain(std::uint16_t port);
  // A failing send closes the source; from then on sending to one host takes a second and gives -1.
  int Send(const std::uint8_t* buffer, std::uint16_t length, int flags) override;
  // Opens a source that is closed. Reads without a wait until nothing is there (-1). From then on
  // waits first, until something comes; 0 and packet.timed_out when a wait ends with nothing.
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override;
  // The -1 of the last Receive is an empty queue, not a call that failed.
  bool FoundNothing() const noexcept { return found_nothing_; }
  int SetSocketBufferSize(std::uint32_t size) override;

  // From now on Receive gives kRefused for a datagram that another IPv4 address has sent. False,
  // with nothing changed, when `ip` is no address in dotted form.
  bool AcceptOnlyFrom(const std::string& ip);
  static constexpr int kRefused = -2;
  // IPv4 address of the last datagram's sender in network order, 0 before the first.
  std::uint32_t LastSender() const noexcept { return last_sender_; }
  // Datagrams that the kernel has dropped since the socket was opened: no room, a wrong checksum.
  std::uint64_t KernelDropped() const noexcept;

 private:
  bool SetReceiveOptions() const;
  bool Bind();
  void GrowReceiveBuffer();
  void JoinGroup() const;
  int SendTo(const sockaddr_in& destination, const std::uint8_t* buffer, std::uint16_t length,
             int flags);
  int Read(UdpPacket& packet, std::uint16_t length, int flags);
  int WaitReadable(int timeout_us) const;

  std::string multicast_ip_;
  std::string client_ip_;
  std::uint16_t port_;  // 0 marks a closed source
  int socket_fd_ = -1;
  bool use_select_ = false;  // the next Receive waits before it reads
  bool found_nothing_ = false;
  std::uint32_t only_sender_ = 0;  // 0: any
  std::uint32_t last_sender_ = 0;
  sockaddr_in broadcast_addr_{};  // destination while client_ip_ is a broadcast
};

}  // namespace kerul::lidar
