#include "kerul_lidar/udp_point_receiver.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPatience{2000};

void SendTo(std::uint16_t port, const std::vector<std::uint8_t>& bytes) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const ssize_t sent =
      sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  EXPECT_EQ(sent, static_cast<ssize_t>(bytes.size()));
  close(fd);
}

TEST(UdpPointReceiver, ADatagramComesWithItsLengthAndBytes) {
  UdpPointReceiver receiver;
  ASSERT_TRUE(receiver.Open(0)) << receiver.Error();
  EXPECT_NE(receiver.Port(), 0);
  const std::vector<std::uint8_t> bytes{1, 2, 3, 4, 5};
  SendTo(receiver.Port(), bytes);
  ReceivedPacket packet;
  ASSERT_TRUE(receiver.Receive(packet, kPatience));
  EXPECT_EQ(std::vector<std::uint8_t>(packet.bytes, packet.bytes + packet.length), bytes);
  EXPECT_EQ(packet.number, 0U);
}

TEST(UdpPointReceiver, TheLongestPacketFitsAndLongerOnesAndEmptyOnesAreDropped) {
  UdpPointReceiver receiver;
  ASSERT_TRUE(receiver.Open(0));
  SendTo(receiver.Port(), std::vector<std::uint8_t>(1501, 1));
  SendTo(receiver.Port(), {});
  SendTo(receiver.Port(), std::vector<std::uint8_t>(1500, 2));
  ReceivedPacket packet;
  ASSERT_TRUE(receiver.Receive(packet, kPatience));
  EXPECT_EQ(packet.length, 1500);
  EXPECT_EQ(packet.bytes[1499], 2);
  EXPECT_EQ(receiver.Dropped(), 2U);
}

TEST(UdpPointReceiver, WithoutADatagramTheTimeoutEndsIt) {
  UdpPointReceiver receiver;
  ASSERT_TRUE(receiver.Open(0));
  ReceivedPacket packet;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(receiver.Receive(packet, milliseconds(30)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
}

TEST(UdpPointReceiver, ATakenPortIsReported) {
  UdpPointReceiver first;
  ASSERT_TRUE(first.Open(0));
  UdpPointReceiver second;
  EXPECT_FALSE(second.Open(first.Port()));
  EXPECT_EQ(second.Error(), "bind: Address already in use");
  EXPECT_FALSE(second.IsOpened());
}

TEST(UdpPointReceiver, AWrongMulticastGroupIsReported) {
  UdpPointReceiver receiver;
  EXPECT_FALSE(receiver.Open(0, "not an address"));
  EXPECT_EQ(receiver.Error(), "multicast group: Invalid argument");
  EXPECT_FALSE(receiver.Open(0, "127.0.0.1"));
  EXPECT_FALSE(receiver.IsOpened());
}

TEST(UdpPointReceiver, AClosedOneReceivesNothing) {
  UdpPointReceiver receiver;
  ReceivedPacket packet;
  EXPECT_FALSE(receiver.Receive(packet, milliseconds(1)));
  ASSERT_TRUE(receiver.Open(0));
  receiver.Close();
  EXPECT_FALSE(receiver.IsOpened());
  EXPECT_EQ(receiver.Port(), 0);
  EXPECT_FALSE(receiver.Receive(packet, milliseconds(1)));
}

}  // namespace
}  // namespace kerul::lidar
