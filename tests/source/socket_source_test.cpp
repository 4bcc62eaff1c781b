// Opening, closing and options of the UDP source.
#include "source/socket_source.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "source/failing_calls.h"
#include "source/loopback.h"

namespace kerul::lidar {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class SocketSourceOpening : public testing::Test {
 protected:
  SocketSourceOpening() { FailingCalls::Get() = {}; }
  ~SocketSourceOpening() override { FailingCalls::Get() = {}; }

  // Opens `source` and keeps what it said and which descriptor it has.
  bool Open(SocketSource& source) {
    bool result = false;
    testing::internal::CaptureStderr();
    out_ = Printed([&] { result = source.Open(); });
    err_ = testing::internal::GetCapturedStderr();
    fd_ = DescriptorIn(out_);
    return result;
  }

  std::string out_;
  std::string err_;
  int fd_ = -1;
};

TEST_F(SocketSourceOpening, AFreshSourceIsClosedAndSaysNothing) {
  EXPECT_EQ(Printed([] {
              SocketSource source(2368, "");
              EXPECT_EQ(source.GetType(), "UDP");
              EXPECT_FALSE(source.IsOpened());
              std::fflush(stdout);
            }),
            "SocketSource::Close()\nSource::Close()\n");
}

TEST_F(SocketSourceOpening, OpenBindsANonBlockingSocketWithItsOptions) {
  const std::uint16_t port = FreePort();
  SocketSource source(port, "");
  EXPECT_TRUE(Open(source));
  EXPECT_TRUE(source.IsOpened());
  ASSERT_GE(fd_, 0);

  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size), 0);
  EXPECT_EQ(ntohs(address.sin_port), port);
  EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
  EXPECT_EQ(IntOption(fd_, SO_REUSEADDR), 1);
  EXPECT_EQ(IntOption(fd_, SO_PROTOCOL), 17);
  EXPECT_NE(::fcntl(fd_, F_GETFL) & O_NONBLOCK, 0);
  timeval timeout{};
  size = sizeof timeout;
  ASSERT_EQ(::getsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, &size), 0);
  EXPECT_EQ(timeout.tv_sec, 0);
  EXPECT_EQ(timeout.tv_usec, 20000);
}

TEST_F(SocketSourceOpening, OpenPrintsTheDescriptorAndTheGrantedBuffer) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  EXPECT_EQ(out_, "SocketSource::Open succeed, sock:" + std::to_string(fd_) +
                      "\nSocketSource::Open SO_RCVBUF=" +
                      std::to_string(IntOption(fd_, SO_RCVBUF)) + " bytes\n");
  EXPECT_EQ(err_, "");
}

// What is granted depends on the machine's limit; what is asked for does not.
TEST_F(SocketSourceOpening, OpenAsksForAReceiveBufferOf128Mebibytes) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  EXPECT_EQ(FailingCalls::Get().receive_buffer, 134217728);
}

TEST_F(SocketSourceOpening, AFailedOptionStillAsksForTheReceiveBuffer) {
  FailingCalls::Get().set_receive_timeout = EDOM;
  SocketSource source(FreePort(), "");
  EXPECT_FALSE(Open(source));
  EXPECT_EQ(FailingCalls::Get().receive_buffer, 134217728);
}

TEST_F(SocketSourceOpening, WithoutASocketOpenFailsSilently) {
  SocketSource source(FreePort(), "");
  FailingCalls::Get().socket = EMFILE;
  EXPECT_FALSE(Open(source));
  EXPECT_EQ(out_ + err_, "");
  EXPECT_FALSE(source.IsOpened());
}

TEST_F(SocketSourceOpening, AFailingReuseOptionSkipsTheBindButLeavesTheSocket) {
  FailingCalls::Get().set_reuse_address = EPERM;
  FailingCalls::Get().set_receive_timeout = EPERM;  // not reached
  SocketSource source(FreePort(), "");
  EXPECT_FALSE(Open(source));
  EXPECT_THAT(out_, StartsWith("setsockopt SO_REUSEADDR failed, errno:" + std::to_string(EPERM) +
                               "\nSocketSource::Open SO_RCVBUF="));
  EXPECT_TRUE(source.IsOpened());
}

TEST_F(SocketSourceOpening, AFailingTimeoutOptionSkipsTheBindButLeavesTheSocket) {
  SocketSource source(FreePort(), "");
  FailingCalls::Get().set_receive_timeout = EDOM;
  FailingCalls::Get().bind = EADDRINUSE;  // not reached
  EXPECT_FALSE(Open(source));
  EXPECT_THAT(out_, StartsWith("setsockopt SO_RCVTIMEO failed, errno:" + std::to_string(EDOM) +
                               "\nSocketSource::Open SO_RCVBUF="));
  EXPECT_TRUE(source.IsOpened());
}

TEST_F(SocketSourceOpening, AfterAFailedOptionTheSocketIsReadAllTheSame) {
  FailingCalls::Get().set_receive_timeout = EDOM;
  SocketSource source(FreePort(), "");
  ASSERT_FALSE(Open(source));
  UdpPacket packet{};
  EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), -1);
  EXPECT_EQ(source.Receive(packet, 1500, 0, 1000), 0);
  EXPECT_EQ(packet.timed_out, 1);
}

TEST_F(SocketSourceOpening, ATakenPortClosesTheSocket) {
  const Peer taken;
  const std::size_t before = OpenDescriptors();
  SocketSource source(taken.Port(), "");
  EXPECT_FALSE(Open(source));
  EXPECT_EQ(out_, "SocketSource::Open(), bind failed, errno: " + std::to_string(EADDRINUSE) + "\n");
  EXPECT_FALSE(source.IsOpened());
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(SocketSourceOpening, ABindThatIsStillUnderWayIsLetThrough) {
  for (const int error : {EINPROGRESS, EAGAIN}) {
    FailingCalls::Get().bind = error;
    SocketSource source(2368, "");  // never bound
    EXPECT_TRUE(Open(source));
    EXPECT_THAT(out_, StartsWith("SocketSource::Open SO_RCVBUF="));
    EXPECT_TRUE(source.IsOpened());
  }
}

TEST_F(SocketSourceOpening, ABlockingSocketIsOnlyReported) {
  FailingCalls::Get().fcntl = EINVAL;
  SocketSource source(FreePort(), "");
  EXPECT_TRUE(Open(source));
  EXPECT_EQ(err_, std::string("non-block: ") + std::strerror(EINVAL) + "\n");
  EXPECT_THAT(out_, HasSubstr(" bytes\n"));
}

TEST_F(SocketSourceOpening, AnUnreadableBufferSizeIsNotPrinted) {
  FailingCalls::Get().get_receive_buffer = EINVAL;
  SocketSource source(FreePort(), "");
  EXPECT_TRUE(Open(source));
  EXPECT_EQ(out_, "SocketSource::Open succeed, sock:" + std::to_string(fd_) + "\n");
}

TEST_F(SocketSourceOpening, JoinsTheGroupOnAnyInterface) {
  FailingCalls::Get().join_succeeds = true;
  SocketSource source(FreePort(), "239.1.2.3");
  EXPECT_TRUE(Open(source));
  EXPECT_THAT(out_, HasSubstr(" bytes\nRecive data from multicast ip address 239.1.2.3\n"));
  ASSERT_TRUE(FailingCalls::Get().joined.has_value());
  EXPECT_EQ(FailingCalls::Get().joined->imr_multiaddr.s_addr, inet_addr("239.1.2.3"));
  EXPECT_EQ(FailingCalls::Get().joined->imr_interface.s_addr, htonl(INADDR_ANY));
}

TEST_F(SocketSourceOpening, AGroupThatCannotBeJoinedIsOnlyReported) {
  for (const char* group : {"127.0.0.1", "not an address"}) {
    SocketSource source(FreePort(), group);
    EXPECT_TRUE(Open(source));
    EXPECT_EQ(err_,
              std::string("Multicast IP error,set correct multicast ip address or keep it empty\n"
                          ": ") +
                  std::strerror(EINVAL) + "\n");
    EXPECT_THAT(out_, Not(HasSubstr("Recive")));
    EXPECT_TRUE(source.IsOpened());
  }
}

TEST_F(SocketSourceOpening, NoGroupIsJoinedWithoutAnAddress) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  EXPECT_FALSE(FailingCalls::Get().joined.has_value());
}

TEST_F(SocketSourceOpening, CloseClosesTheDescriptor) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  EXPECT_EQ(Printed([&] { source.Close(); }), "SocketSource::Close()\n");
  EXPECT_FALSE(source.IsOpened());
  EXPECT_EQ(::fcntl(fd_, F_GETFL), -1);
}

TEST_F(SocketSourceOpening, CloseForgetsTheDestination) {
  SocketSource source(FreePort(), "");
  source.SetClientIp("127.0.0.1");
  Printed([&] { source.Close(); });
  const std::uint8_t byte = 1;
  EXPECT_THROW(source.Send(&byte, 1, 0), std::out_of_range);
}

TEST_F(SocketSourceOpening, DescriptorZeroIsLeftOpenByClose) {
  const int saved = ::dup(0);
  ASSERT_GE(saved, 0);
  SocketSource source(FreePort(), "");
  // Capturing takes descriptors too, so 0 is given free only then.
  EXPECT_EQ(DescriptorIn(Printed([&] {
              ::close(0);
              EXPECT_TRUE(source.Open());
            })),
            0);
  EXPECT_TRUE(source.IsOpened());
  EXPECT_EQ(Printed([&] { source.Close(); }), "SocketSource::Close()\n");
  EXPECT_NE(::fcntl(0, F_GETFL), -1);
  EXPECT_FALSE(source.IsOpened());
  ::dup2(saved, 0);
  ::close(saved);
}

TEST_F(SocketSourceOpening, TheEndClosesTheDescriptorAndPrintsBothLines) {
  auto source = std::make_unique<SocketSource>(FreePort(), "");
  ASSERT_TRUE(Open(*source));
  ASSERT_EQ(OpenSockets().size(), 1U);
  EXPECT_EQ(Printed([&] { source.reset(); }), "SocketSource::Close()\nSource::Close()\n");
  EXPECT_TRUE(OpenSockets().empty());
}

TEST_F(SocketSourceOpening, PortZeroCountsAsClosedWhateverTheDescriptor) {
  SocketSource source(0, "");
  EXPECT_TRUE(Open(source));
  EXPECT_NE(PortOf(fd_), 0);
  EXPECT_FALSE(source.IsOpened());
}

TEST_F(SocketSourceOpening, OpenClosesTheDescriptorOfBefore) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  const std::size_t before = OpenDescriptors();
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(Open(source));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(SocketSourceOpening, BufferSizeGivesTheResultOfTheCall) {
  SocketSource source(FreePort(), "");
  EXPECT_EQ(source.SetSocketBufferSize(65536), -1);
  ASSERT_TRUE(Open(source));
  EXPECT_EQ(source.SetSocketBufferSize(16384), 0);
  EXPECT_EQ(IntOption(fd_, SO_RCVBUF), 2 * 16384) << "the kernel doubles what it is asked for";
}

TEST_F(SocketSourceOpening, ADestinationReplacesTheSocketByAPlainOne) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  EXPECT_EQ(PrintedAsError([&] { source.SetClientIp("127.0.0.1"); }), "");
  ASSERT_EQ(OpenSockets().size(), 1U);
  const int fd = OpenSockets().front();
  EXPECT_EQ(PortOf(fd), 0);
  EXPECT_EQ(IntOption(fd, SO_REUSEADDR), 0);
  EXPECT_EQ(IntOption(fd, SO_BROADCAST), 0);
  EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_TRUE(source.IsOpened());
}

TEST_F(SocketSourceOpening, AnAddressEndingIn255IsABroadcast) {
  SocketSource source(FreePort(), "");
  ASSERT_TRUE(Open(source));
  source.SetClientIp("10.0.0.255");
  ASSERT_EQ(OpenSockets().size(), 1U);
  EXPECT_EQ(IntOption(OpenSockets().front(), SO_BROADCAST), 1);
  source.SetClientIp("10.0.255.1");
  ASSERT_EQ(OpenSockets().size(), 1U);
  EXPECT_EQ(IntOption(OpenSockets().front(), SO_BROADCAST), 0);
}

TEST_F(SocketSourceOpening, FailuresOfADestinationAreOnlyReported) {
  SocketSource source(FreePort(), "");
  FailingCalls::Get().set_broadcast = EPERM;
  EXPECT_EQ(PrintedAsError([&] { source.SetClientIp("10.0.0.255"); }),
            "SocketSource::Send setsocketopt failed!\n");
  FailingCalls::Get() = {};
  FailingCalls::Get().socket = EMFILE;
  EXPECT_EQ(PrintedAsError([&] { source.SetClientIp("10.0.0.1"); }), "Error creating socket\n");
  EXPECT_FALSE(source.IsOpened());
}

TEST_F(SocketSourceOpening, AnAddressBelowThreeCharactersIsOutOfRange) {
  SocketSource source(FreePort(), "");
  EXPECT_THROW(source.SetClientIp(""), std::out_of_range);
  EXPECT_THROW(source.SetClientIp("55"), std::out_of_range);
  EXPECT_NO_THROW(source.SetClientIp("255"));
}

}  // namespace
}  // namespace kerul::lidar
