#include "source/socket_source.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sock_diag.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <thread>

namespace kerul::lidar {
namespace {

// Keeps a burst of the sensor while the reader is busy with a row. The kernel may grant less.
constexpr int kReceiveBufferBytes = 0x8000000;
constexpr suseconds_t kReceiveTimeoutUs = 20000;
constexpr std::chrono::seconds kClosedSendPause{1};

// Textual on purpose: any address that ends in 255 counts. Below three characters the position
// wraps past the end, and substr throws std::out_of_range.
bool IsBroadcast(const std::string& ip) { return ip.substr(ip.size() - 3) == "255"; }

sockaddr_in AddressWithPort(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return address;
}

// The error is passed by value, before the stream can change errno.
void PrintError(const char* text, int error) { std::cout << text << error << '\n'; }

// As perror does, but through the stream: the program's log passes there.
void PrintSystemError(const char* text, int error) {
  std::cerr << text << ": " << std::strerror(error) << '\n';
}

const sockaddr* Plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

SocketSource::SocketSource(std::uint16_t port, const std::string& multicast_ip)
    : multicast_ip_(multicast_ip), port_(port) {}

SocketSource::~SocketSource() { SocketSource::Close(); }

std::string SocketSource::GetType() { return "UDP"; }

bool SocketSource::Open() {
  // A source with port 0 comes here at every Receive and would run out of descriptors.
  if (socket_fd_ >= 0) ::close(socket_fd_);
  socket_fd_ = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (socket_fd_ < 0) return false;

  const bool options_set = SetReceiveOptions();
  if (options_set && !Bind()) return false;
  if (::fcntl(socket_fd_, F_SETFL, O_NONBLOCK) < 0) PrintSystemError("non-block", errno);
  GrowReceiveBuffer();
  if (!multicast_ip_.empty()) JoinGroup();
  return options_set;
}

bool SocketSource::SetReceiveOptions() const {
  const int on = 1;
  if (::setsockopt(socket_fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
    PrintError("setsockopt SO_REUSEADDR failed, errno:", errno);
    return false;
  }
  const timeval timeout{0, kReceiveTimeoutUs};
  if (::setsockopt(socket_fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) < 0) {
    PrintError("setsockopt SO_RCVTIMEO failed, errno:", errno);
    return false;
  }
  return true;
}

bool SocketSource::Bind() {
  sockaddr_in local = AddressWithPort(port_);
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  if (::bind(socket_fd_, Plain(local), sizeof local) == 0) {
    std::cout << "SocketSource::Open succeed, sock:" << socket_fd_ << '\n';
    return true;
  }
  const int error = errno;
  if (error == EINPROGRESS || error == EAGAIN) return true;
  ::close(socket_fd_);
  socket_fd_ = -1;
  PrintError("SocketSource::Open(), bind failed, errno: ", error);
  return false;
}

void SocketSource::GrowReceiveBuffer() {
  SetSocketBufferSize(kReceiveBufferBytes);
  int granted = 0;
  socklen_t size = sizeof granted;
  if (::getsockopt(socket_fd_, SOL_SOCKET, SO_RCVBUF, &granted, &size) == 0) {
    std::cout << "SocketSource::Open SO_RCVBUF=" << granted << " bytes\n";
  }
}

void SocketSource::JoinGroup() const {
  ip_mreq group{};
  group.imr_multiaddr.s_addr = ::inet_addr(multicast_ip_.c_str());
  group.imr_interface.s_addr = htonl(INADDR_ANY);
  if (::setsockopt(socket_fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) < 0) {
    PrintSystemError("Multicast IP error,set correct multicast ip address or keep it empty\n",
                     errno);
  } else {
    std::cout << "Recive data from multicast ip address " << multicast_ip_ << '\n';
  }
}

void SocketSource::Close() {
  std::cout << "SocketSource::Close()\n";
  client_ip_.clear();
  port_ = 0;
  // Deliberate: descriptor 0 is left open, and closing -1 does nothing.
  if (socket_fd_ != 0) {
    ::close(socket_fd_);
    socket_fd_ = -1;
  }
}

bool SocketSource::IsOpened() { return port_ != 0 && socket_fd_ >= 0; }

void SocketSource::SetClientIp(const std::string& ip) {
  client_ip_ = ip;
  ::close(socket_fd_);
  socket_fd_ = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (socket_fd_ < 0) std::cerr << "Error creating socket\n";
  if (!IsBroadcast(client_ip_)) return;

  const int on = 1;
  if (::setsockopt(socket_fd_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) < 0) {
    std::cerr << "SocketSource::Send setsocketopt failed!\n";
  }
  broadcast_addr_ = AddressWithPort(port_);
  broadcast_addr_.sin_addr.s_addr = ::inet_addr(client_ip_.c_str());
}

void SocketSource::OpenToSendAgain(std::uint16_t port) {
  port_ = port;
  SetClientIp(client_ip_);
}

int SocketSource::Send(const std::uint8_t* buffer, std::uint16_t length, int flags) {
  // Deliberate: a broadcast goes out whether or not the source counts as open.
  if (IsBroadcast(client_ip_)) return SendTo(broadcast_addr_, buffer, length, flags);
  if (!IsOpened()) {
    std::cout << "SocketSource::Send failed to send.\n";
    std::this_thread::sleep_for(kClosedSendPause);  // goes on after a signal
    return -1;
  }
  sockaddr_in destination = AddressWithPort(port_);
  if (::inet_pton(AF_INET, client_ip_.c_str(), &destination.sin_addr) < 1) {
    std::cout << "SocketSource::Send(), invalid IP " << client_ip_ << '\n';
    return -1;
  }
  return SendTo(destination, buffer, length, flags);
}

int SocketSource::SendTo(const sockaddr_in& destination, const std::uint8_t* buffer,
                         std::uint16_t length, int flags) {
  const ssize_t sent =
      ::sendto(socket_fd_, buffer, length, flags, Plain(destination), sizeof destination);
  if (sent >= 0) return static_cast<int>(sent);
  PrintError("SocketSource::Send, errno:", errno);
  ::close(socket_fd_);
  socket_fd_ = -1;
  port_ = 0;
  return -1;
}

int SocketSource::Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) {
  found_nothing_ = false;
  if (!IsOpened() && !Open()) return -1;
  if (!use_select_) return Read(packet, length, flags);

  const int ready = WaitReadable(timeout_us);
  if (ready > 0) {
    use_select_ = false;
    return Read(packet, length, flags);
  }
  if (ready == 0) {
    packet.timed_out = 1;  // deliberate: nothing clears it again
    return 0;
  }
  std::cout << "Select timeout error\n";
  return -1;
}

int SocketSource::Read(UdpPacket& packet, std::uint16_t length, int flags) {
  const std::size_t room = std::min<std::size_t>(length, sizeof packet.buffer);
  sockaddr_in sender{};
  socklen_t size = sizeof sender;
  const ssize_t received = ::recvfrom(socket_fd_, packet.buffer, room, flags,
                                      reinterpret_cast<sockaddr*>(&sender), &size);
  if (received == -1) {
    use_select_ = true;
    found_nothing_ = errno == EAGAIN || errno == EWOULDBLOCK;
  }
  if (received >= 0) {
    last_sender_ = sender.sin_addr.s_addr;
    if (only_sender_ != 0 && last_sender_ != only_sender_) return kRefused;
  }
  return static_cast<int>(received);
}

bool SocketSource::AcceptOnlyFrom(const std::string& ip) {
  in_addr address{};
  if (::inet_pton(AF_INET, ip.c_str(), &address) != 1 || address.s_addr == 0) return false;
  only_sender_ = address.s_addr;
  return true;
}

// The counter that SO_RXQ_OVFL would attach to each datagram, read once a frame instead. A receive
// costs no more, and drops show even if no datagram follows them.
std::uint64_t SocketSource::KernelDropped() const noexcept {
  std::uint32_t values[SK_MEMINFO_VARS] = {};
  socklen_t size = sizeof values;
  if (::getsockopt(socket_fd_, SOL_SOCKET, SO_MEMINFO, values, &size) != 0) return 0;
  return values[SK_MEMINFO_DROPS];
}

// Above 0 ready, 0 nothing came, below 0 failed.
int SocketSource::WaitReadable(int timeout_us) const {
  // select has room for the first descriptors only and would write past its set.
  if (socket_fd_ >= FD_SETSIZE) return -1;
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket_fd_, &readable);
  timeval timeout{0, timeout_us};
  return ::select(socket_fd_ + 1, &readable, nullptr, nullptr, &timeout);
}

int SocketSource::SetSocketBufferSize(std::uint32_t size) {
  const int bytes = static_cast<int>(size);
  return ::setsockopt(socket_fd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

}  // namespace kerul::lidar
