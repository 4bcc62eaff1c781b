// Sending and receiving with the UDP source, over the loopback interface.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "source/failing_calls.h"
#include "source/loopback.h"
#include "source/socket_source.h"

namespace kerul::lidar {
namespace {

using std::chrono::steady_clock;
using testing::EndsWith;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kTooLong = 65535;  // more than a datagram can carry

double SecondsSince(steady_clock::time_point start) {
  return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// The first bytes of a packet.
Bytes Head(const UdpPacket& packet, std::size_t count) {
  return Bytes(packet.buffer, packet.buffer + count);
}

TEST(SocketSourceSending, ReachesTheDestination) {
  const Peer peer;
  SocketSource source(peer.Port(), "");
  source.SetClientIp("127.0.0.1");
  const Bytes bytes{1, 2, 3, 4};
  EXPECT_EQ(source.Send(bytes.data(), 4, 0), 4);
  EXPECT_EQ(peer.Take(), bytes);
  EXPECT_EQ(source.Send(bytes.data(), 2, MSG_DONTWAIT), 2);
  EXPECT_EQ(peer.Take(), (Bytes{1, 2}));
}

TEST(SocketSourceSending, HandsItsFlagsToTheSystemOnBothWays) {
  const Peer peer;
  for (const char* const ip : {"127.0.0.1", "127.0.0.255"}) {
    SocketSource source(peer.Port(), "");
    source.SetClientIp(ip);
    const Bytes bytes{1, 2};
    for (const int flags : {0, int{MSG_DONTWAIT}, MSG_DONTWAIT | MSG_NOSIGNAL}) {
      FailingCalls::Get().send_flags.reset();
      EXPECT_EQ(source.Send(bytes.data(), 2, flags), 2);
      EXPECT_EQ(FailingCalls::Get().send_flags, flags) << ip;
      EXPECT_EQ(peer.Take(), bytes);
    }
  }
}

TEST(SocketSourceSending, AnEmptyDatagramGoesOutAndLeavesTheSourceOpen) {
  const Peer peer;
  SocketSource source(peer.Port(), "");
  source.SetClientIp("127.0.0.1");
  const Bytes bytes{5};
  EXPECT_EQ(source.Send(bytes.data(), 0, 0), 0);
  EXPECT_TRUE(source.IsOpened());
  EXPECT_TRUE(peer.Take().empty());
  EXPECT_EQ(source.Send(bytes.data(), 1, 0), 1);
  EXPECT_EQ(peer.Take(), bytes);
}

TEST(SocketSourceSending, AnInvalidAddressIsReportedAndLeavesTheSourceOpen) {
  SocketSource source(FreePort(), "");
  source.SetClientIp("somewhere");
  const Bytes bytes{1};
  int result = 0;
  EXPECT_EQ(Printed([&] { result = source.Send(bytes.data(), 1, 0); }),
            "SocketSource::Send(), invalid IP somewhere\n");
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(source.IsOpened());
}

TEST(SocketSourceSending, WithoutADestinationItIsOutOfRange) {
  SocketSource source(FreePort(), "");
  const Bytes bytes{1};
  EXPECT_THROW(source.Send(bytes.data(), 1, 0), std::out_of_range);
}

TEST(SocketSourceSending, AFailureClosesTheSourceAndTheNextSendTakesASecond) {
  SocketSource source(FreePort(), "");
  source.SetClientIp("127.0.0.1");
  const std::size_t before = OpenDescriptors();
  const Bytes bytes(kTooLong);
  int result = 0;
  EXPECT_EQ(Printed([&] { result = source.Send(bytes.data(), kTooLong, 0); }),
            "SocketSource::Send, errno:" + std::to_string(EMSGSIZE) + "\n");
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(source.IsOpened());
  EXPECT_EQ(OpenDescriptors(), before - 1);

  const auto start = steady_clock::now();
  EXPECT_EQ(Printed([&] { result = source.Send(bytes.data(), 1, 0); }),
            "SocketSource::Send failed to send.\n");
  EXPECT_EQ(result, -1);
  EXPECT_GE(SecondsSince(start), 1.0);
}

TEST(SocketSourceSending, TheSecondGoesOnAfterASignal) {
  SocketSource source(0, "");
  source.SetClientIp("127.0.0.1");  // port 0: counts as closed
  struct sigaction handler {};
  struct sigaction before {};
  static std::atomic<int> signals = 0;
  signals = 0;
  handler.sa_handler = [](int) { ++signals; };
  ASSERT_EQ(::sigaction(SIGUSR1, &handler, &before), 0);
  const pthread_t sender = ::pthread_self();
  std::thread interrupter([sender] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ::pthread_kill(sender, SIGUSR1);
  });
  const auto start = steady_clock::now();
  const Bytes bytes{1};
  Printed([&] { EXPECT_EQ(source.Send(bytes.data(), 1, 0), -1); });
  EXPECT_GE(SecondsSince(start), 1.0);
  interrupter.join();
  EXPECT_EQ(signals, 1);
  ::sigaction(SIGUSR1, &before, nullptr);
}

// 127.0.0.255 is an ordinary address of the loopback interface, yet counts by its text.
TEST(SocketSourceSending, ABroadcastGoesWhereTheDestinationWasSetEvenWhenNotOpen) {
  const Peer peer;
  SocketSource source(peer.Port(), "");
  source.SetClientIp("127.0.0.255");
  const Bytes bytes(kTooLong, 7);
  EXPECT_EQ(source.Send(bytes.data(), 3, 0), 3);
  EXPECT_EQ(peer.Take(), (Bytes{7, 7, 7}));

  UdpPacket packet{};
  Printed([&] {
    EXPECT_EQ(source.Send(bytes.data(), kTooLong, 0), -1);  // the port is 0 from here on
    source.Receive(packet, 1500, 0, 1000);                  // a descriptor again
  });
  EXPECT_FALSE(source.IsOpened());
  EXPECT_EQ(source.Send(bytes.data(), 2, 0), 2);
  EXPECT_EQ(peer.Take(), (Bytes{7, 7}));
}

TEST(SocketSourceSending, ABroadcastWithoutADescriptorFailsAtOnce) {
  SocketSource source(FreePort(), "");
  source.SetClientIp("127.0.0.255");
  const Bytes bytes(kTooLong);
  Printed([&] { EXPECT_EQ(source.Send(bytes.data(), kTooLong, 0), -1); });
  const auto start = steady_clock::now();
  int result = 0;
  EXPECT_EQ(Printed([&] { result = source.Send(bytes.data(), 1, 0); }),
            "SocketSource::Send, errno:" + std::to_string(EBADF) + "\n");
  EXPECT_EQ(result, -1);
  EXPECT_LT(SecondsSince(start), 0.9) << "no pause of a second on this way";
}

class SocketSourceReceiving : public testing::Test {
 protected:
  SocketSourceReceiving() : port_(FreePort()), source_(port_, "") {
    FailingCalls::Get() = {};
    fd_ = DescriptorIn(Printed([this] { source_.Open(); }));
  }

  int Receive(int timeout_us = 1000) { return source_.Receive(packet_, 1500, 0, timeout_us); }

  std::uint16_t port_;
  SocketSource source_;
  int fd_ = -1;
  UdpPacket packet_{};
  Peer peer_;
};

TEST_F(SocketSourceReceiving, AnIdleSocketGivesOneFailureAndThenTimeouts) {
  EXPECT_EQ(Receive(), -1);
  EXPECT_EQ(packet_.timed_out, 0);
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(packet_.timed_out, 1);
  EXPECT_EQ(Receive(), 0);
}

TEST_F(SocketSourceReceiving, TheWaitLastsAsLongAsItIsTold) {
  EXPECT_EQ(Receive(300000), -1);
  const auto start = steady_clock::now();
  EXPECT_EQ(Receive(50000), 0);
  EXPECT_GE(SecondsSince(start), 0.05);
}

TEST_F(SocketSourceReceiving, TheFirstReadDoesNotWait) {
  const auto start = steady_clock::now();
  EXPECT_EQ(Receive(900000), -1);
  EXPECT_LT(SecondsSince(start), 0.8);
}

TEST_F(SocketSourceReceiving, ReadsDirectlyUntilTheQueueIsEmpty) {
  EXPECT_EQ(Receive(), -1);
  peer_.SendTo(port_, {1});
  peer_.SendTo(port_, {2, 2});
  EXPECT_EQ(Receive(), 1);   // after a wait
  EXPECT_EQ(Receive(), 2);   // directly
  EXPECT_EQ(Receive(), -1);  // directly, the queue is empty
  EXPECT_EQ(Receive(), 0);   // waits again
}

TEST_F(SocketSourceReceiving, FillsTheBufferAndLeavesTheLengthAlone) {
  packet_.length = 77;
  peer_.SendTo(port_, {9, 8, 7});
  EXPECT_EQ(Receive(), 3);
  EXPECT_EQ(Head(packet_, 4), (Bytes{9, 8, 7, 0}));
  EXPECT_EQ(packet_.length, 77);
  EXPECT_EQ(packet_.timed_out, 0);
}

TEST_F(SocketSourceReceiving, TakesAtMostTheLengthAskedFor) {
  peer_.SendTo(port_, {1, 2, 3, 4});
  EXPECT_EQ(source_.Receive(packet_, 2, 0, 1000), 2);
  EXPECT_EQ(Head(packet_, 3), (Bytes{1, 2, 0}));
}

TEST_F(SocketSourceReceiving, NeverWritesPastThePacket) {
  peer_.SendTo(port_, Bytes(1600, 5));
  EXPECT_EQ(source_.Receive(packet_, 2000, 0, 1000), kMaxDatagramBytes);
  EXPECT_EQ(packet_.buffer[kMaxDatagramBytes - 1], 5);
  EXPECT_EQ(packet_.length, 0);
}

TEST_F(SocketSourceReceiving, PassesTheFlagsOn) {
  peer_.SendTo(port_, {6});
  EXPECT_EQ(source_.Receive(packet_, 1500, MSG_PEEK, 1000), 1);
  EXPECT_EQ(source_.Receive(packet_, 1500, 0, 1000), 1);
}

TEST_F(SocketSourceReceiving, AnEmptyDatagramGivesZeroWithoutTheFlag) {
  peer_.SendTo(port_, {});
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(packet_.timed_out, 0);
}

// It is a packet that came: the next one is read without a wait, and there is no -1 between them.
TEST_F(SocketSourceReceiving, AfterAnEmptyDatagramReadingGoesOnDirectly) {
  peer_.SendTo(port_, {});
  peer_.SendTo(port_, {8});
  EXPECT_EQ(Receive(), 0);
  EXPECT_FALSE(source_.FoundNothing());
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(Receive(), -1);  // a direct read of the empty queue
  peer_.SendTo(port_, {});
  EXPECT_EQ(Receive(1000000), 0);  // by the wait
  EXPECT_EQ(packet_.timed_out, 0);
  EXPECT_EQ(Receive(), -1) << "direct again: a wait would give 0";
}

TEST_F(SocketSourceReceiving, AnEmptyQueueIsToldFromAFailingCall) {
  EXPECT_EQ(Receive(), -1);
  EXPECT_TRUE(source_.FoundNothing());
  EXPECT_EQ(Receive(), 0);
  EXPECT_FALSE(source_.FoundNothing());
  ::close(fd_);
  Printed([&] { EXPECT_EQ(Receive(), -1); });  // the wait
  EXPECT_FALSE(source_.FoundNothing());
}

TEST_F(SocketSourceReceiving, AFailingFirstReadIsNoEmptyQueue) {
  ::close(fd_);
  EXPECT_EQ(Receive(), -1);
  EXPECT_FALSE(source_.FoundNothing());
}

TEST_F(SocketSourceReceiving, AFailingWaitIsReported) {
  EXPECT_EQ(Receive(), -1);
  ::close(fd_);
  int result = 0;
  EXPECT_EQ(Printed([&] { result = Receive(); }), "Select timeout error\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(packet_.timed_out, 0);
}

TEST_F(SocketSourceReceiving, ADescriptorBeyondTheWaitsSetIsReportedAsAFailingWait) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit before = limit;
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 64);
  if (limit.rlim_cur > limit.rlim_max) GTEST_SKIP() << "the machine allows too few descriptors";
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  std::vector<int> fillers;
  while (fillers.empty() || fillers.back() < FD_SETSIZE) fillers.push_back(::dup(fd_));
  {
    SocketSource source(FreePort(), "");
    std::string printed;
    printed = Printed([&] {
      EXPECT_EQ(source.Receive(packet_, 1500, 0, 1000), -1);
      EXPECT_EQ(source.Receive(packet_, 1500, 0, 1000), -1);
    });
    EXPECT_GE(DescriptorIn(printed), FD_SETSIZE);
    EXPECT_THAT(printed, EndsWith("Select timeout error\n"));
  }
  for (const int filler : fillers) ::close(filler);
  ::setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(SocketSourceReceiving, TheSenderOfTheLastDatagramIsKnown) {
  EXPECT_EQ(source_.LastSender(), 0U);
  peer_.SendTo(port_, {1});
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(source_.LastSender(), htonl(INADDR_LOOPBACK));
}

TEST_F(SocketSourceReceiving, DatagramsOfOtherSendersAreRefusedOneATry) {
  ASSERT_TRUE(source_.AcceptOnlyFrom("127.0.0.2"));
  peer_.SendTo(port_, {1});
  peer_.SendTo(port_, {});
  EXPECT_EQ(Receive(), SocketSource::kRefused);
  EXPECT_EQ(Receive(), SocketSource::kRefused);
  EXPECT_EQ(Receive(), -1);
  ASSERT_TRUE(source_.AcceptOnlyFrom("127.0.0.1"));
  peer_.SendTo(port_, {1, 2});
  EXPECT_EQ(Receive(), 2);
}

TEST_F(SocketSourceReceiving, ASenderThatIsNoAddressIsRefusedAndChangesNothing) {
  for (const char* text : {"", "localhost", "127.0.0", "0.0.0.0", "::1", "127.0.0.1 "}) {
    EXPECT_FALSE(source_.AcceptOnlyFrom(text)) << text;
  }
  peer_.SendTo(port_, {1});
  EXPECT_EQ(Receive(), 1);
}

TEST_F(SocketSourceReceiving, WhatTheKernelDroppedIsCounted) {
  EXPECT_EQ(source_.KernelDropped(), 0U);
  ASSERT_EQ(source_.SetSocketBufferSize(8192), 0);
  constexpr std::uint64_t kSent = 500;
  for (std::uint64_t i = 0; i < kSent; ++i) peer_.SendTo(port_, Bytes(1000, 1));
  std::uint64_t received = 0;
  while (Receive() == 1000) ++received;
  EXPECT_GT(received, 0U);
  EXPECT_GT(source_.KernelDropped(), 0U);
  EXPECT_EQ(received + source_.KernelDropped(), kSent);
}

TEST(SocketSourceReopening, ReceiveOpensASourceThatIsClosed) {
  const std::uint16_t port = FreePort();
  SocketSource source(port, "");
  UdpPacket packet{};
  EXPECT_THAT(Printed([&] { EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), -1); }),
              HasSubstr("SocketSource::Open succeed"));
  EXPECT_TRUE(source.IsOpened());
  const Peer peer;
  peer.SendTo(port, {4});
  EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), 1);
}

TEST(SocketSourceReopening, ReceiveGivesAFailureWhenItCannotOpen) {
  const Peer taken;
  SocketSource source(taken.Port(), "");
  UdpPacket packet{};
  EXPECT_THAT(Printed([&] { EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), -1); }),
              HasSubstr("bind failed"));
  EXPECT_THAT(Printed([&] { EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), -1); }),
              HasSubstr("bind failed"));
  EXPECT_EQ(packet.timed_out, 0);
}

TEST(SocketSourceReopening, AClosedSourceReadsOnAtAPortOfTheKernelsChoice) {
  SocketSource source(FreePort(), "");
  UdpPacket packet{};
  int fd = -1;
  Printed([&] {
    source.Open();
    source.Close();
  });
  fd = DescriptorIn(Printed([&] { EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), -1); }));
  EXPECT_NE(PortOf(fd), 0);
  EXPECT_FALSE(source.IsOpened());
}

TEST(SocketSourceReopening, WithPortZeroEveryReceiveOpensAnewAndLosesNoDescriptor) {
  SocketSource source(0, "");
  UdpPacket packet{};
  Printed([&] { source.Receive(packet, 1500, 0, 1000); });
  const std::size_t before = OpenDescriptors();
  for (int i = 0; i < 20; ++i) {
    EXPECT_GE(DescriptorIn(Printed([&] { source.Receive(packet, 1500, 0, 100); })), 0);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(SocketSourceReopening, WithPortZeroReadingGoesOnAtTheNewPort) {
  SocketSource source(0, "");
  UdpPacket packet{};
  // From here on it waits first.
  Printed([&] { EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), -1); });

  const Peer peer;
  std::atomic<bool> is_done = false;
  std::thread sender([&] {
    while (!is_done) {
      for (const int fd : OpenSockets()) {
        const std::uint16_t port = PortOf(fd);
        if (port != 0 && port != peer.Port()) peer.SendTo(port, {1, 2, 3});
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  int result = -1;
  Printed([&] {
    for (int i = 0; i < 20 && result <= 0; ++i) result = source.Receive(packet, 1500, 0, 100000);
  });
  is_done = true;
  sender.join();
  EXPECT_EQ(result, 3);
  EXPECT_EQ(Head(packet, 3), (Bytes{1, 2, 3}));
}

}  // namespace
}  // namespace kerul::lidar
