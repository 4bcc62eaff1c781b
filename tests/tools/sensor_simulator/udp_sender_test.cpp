#include "sensor_simulator/udp_sender.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace kerul::lidar::simulator {
namespace {

using Clock = std::chrono::steady_clock;

// A socket on a free port of the loopback address.
struct Receiver {
  int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
  std::uint16_t port = 0;

  Receiver() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("no port to be had");
    }
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    const timeval wait{0, 200000};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  }
  ~Receiver() { close(descriptor); }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  Datagram Next() const {
    Datagram datagram(2000);
    const ssize_t count = recv(descriptor, datagram.data(), datagram.size(), 0);
    datagram.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return datagram;
  }
};

std::vector<Datagram> Datagrams(std::size_t count) {
  std::vector<Datagram> datagrams;
  for (std::size_t i = 0; i < count; ++i) {
    datagrams.emplace_back(1 + i % 5, static_cast<std::uint8_t>(i));
  }
  return datagrams;
}

TEST(UdpSender, DatagramsArriveInOrderAndAreCounted) {
  const Receiver receiver;
  UdpSender sender("127.0.0.1", receiver.port);
  const std::vector<Datagram> datagrams = Datagrams(100);
  sender.SendPaced(datagrams, Clock::now(), std::chrono::nanoseconds(0));
  for (const Datagram& datagram : datagrams) ASSERT_EQ(receiver.Next(), datagram);
  EXPECT_EQ(sender.sent(), 100U);
  EXPECT_EQ(sender.bytes(), 300U);
  EXPECT_EQ(sender.failed(), 0U);
}

TEST(UdpSender, BatchesAreSpreadOverTheSpan) {
  const Receiver receiver;
  UdpSender sender("127.0.0.1", receiver.port);
  const Clock::time_point start = Clock::now();
  // Ten batches of 32: the last is due after nine tenths of the span.
  sender.SendPaced(Datagrams(320), start, std::chrono::milliseconds(100));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(89));
}

TEST(UdpSender, APortWithoutAListenerRefusesNothing) {
  std::uint16_t port = 0;
  { port = Receiver().port; }
  UdpSender sender("127.0.0.1", port);
  sender.SendPaced(Datagrams(100), Clock::now(), std::chrono::nanoseconds(0));
  EXPECT_EQ(sender.sent(), 100U);
}

TEST(UdpSender, ADatagramThatTheSystemRefusesIsPassedOver) {
  const Receiver receiver;
  UdpSender sender("127.0.0.1", receiver.port);
  const std::vector<Datagram> datagrams = {Datagram(70000), Datagram(5, 1)};
  sender.SendPaced(datagrams, Clock::now(), std::chrono::nanoseconds(0));
  EXPECT_EQ(sender.failed(), 1U);
  EXPECT_EQ(receiver.Next(), Datagram(5, 1));
}

TEST(UdpSender, AnAddressThatCannotBeReadIsRefused) {
  EXPECT_THROW(UdpSender("here", 1), std::invalid_argument);
}

}  // namespace
}  // namespace kerul::lidar::simulator
