// The UDP source's part in the worker's loop, over the loopback interface.
#include <gtest/gtest.h>

#include <vector>

#include "source/loopback.h"
#include "source/socket_source.h"
#include "support/allocation_counter.h"

namespace kerul::lidar::testing {
namespace {

constexpr int kTimeoutUs = 1000;
constexpr int kDatagrams = 50;

TEST(SocketAllocation, ReceivingAndWaitingInVainAllocateNothing) {
  const std::uint16_t port = FreePort();
  SocketSource source(port, "");
  ASSERT_TRUE(source.Open());
  const Peer peer;
  const std::vector<std::uint8_t> bytes(692, 7);
  UdpPacket packet{};
  int received = 0;
  for (int i = 0; i < kDatagrams; ++i) {
    peer.SendTo(port, bytes);
    const long before = AllocationCount();
    // Both ways to read: at once, and after a wait. The last look finds nothing.
    while (source.Receive(packet, kMaxDatagramBytes, 0, kTimeoutUs) > 0) ++received;
    EXPECT_EQ(AllocationCount(), before) << "datagram " << i;
  }
  EXPECT_GT(received, 0);
}

TEST(SocketAllocation, SendingAllocatesNothing) {
  const Peer peer;
  SocketSource source(peer.Port(), "");
  source.SetClientIp("127.0.0.1");
  const std::vector<std::uint8_t> bytes(1304, 7);
  const long before = AllocationCount();
  for (int i = 0; i < kDatagrams; ++i) {
    ASSERT_EQ(source.Send(bytes.data(), static_cast<std::uint16_t>(bytes.size()), 0), 1304);
  }
  EXPECT_EQ(AllocationCount(), before);
  EXPECT_EQ(peer.Take(), bytes);
}

}  // namespace
}  // namespace kerul::lidar::testing
