#include "sensor_simulator/command_service.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

namespace kerul::lidar::simulator {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

// A plain socket to the service.
class Link {
 public:
  explicit Link(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    const timeval limit{5, 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&place), sizeof(place)) != 0) {
      throw std::runtime_error("no connection");
    }
  }
  ~Link() { close(socket_); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void Send(const Bytes& bytes) { send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

  // As many bytes as come before the service closes, at most `size`.
  Bytes Receive(std::size_t size) {
    Bytes bytes(size);
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got = read(socket_, bytes.data() + done, size - done);
      if (got <= 0) break;
      done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
  }

  // The payload of a read of `length` bytes, which must succeed.
  Bytes Read(std::uint16_t reg, std::uint16_t length) {
    Send(Request(reg, length));
    const Bytes header = Receive(8);
    const Bytes want{'G',
                     't',
                     0xFF,
                     0,
                     0,
                     0,
                     static_cast<std::uint8_t>(length >> 8U),
                     static_cast<std::uint8_t>(length)};
    EXPECT_EQ(header, want);
    return Receive(length);
  }

  static Bytes Request(std::uint16_t reg, std::uint16_t length) {
    return {'G',
            't',
            0xFF,
            0,
            0,
            0,
            0,
            12,
            0,
            0,
            1,
            0x23,
            0x40,
            2,
            static_cast<std::uint8_t>(reg >> 8U),
            static_cast<std::uint8_t>(reg),
            1,
            0xFF,
            static_cast<std::uint8_t>(length >> 8U),
            static_cast<std::uint8_t>(length)};
  }

 private:
  int socket_;
};

Bytes Page(std::uint8_t value) { return Bytes(256, value); }

class CommandServiceTest : public testing::Test {
 protected:
  CommandServiceTest() {
    Bytes main = Page(0x11);
    const Bytes second = Page(0x22);
    main.insert(main.end(), second.begin(), second.end());
    service_ = std::make_unique<CommandService>(ServiceContent{Page(0xAA), main});
  }
  // What comes back for one read of the head under faults, header included.
  Bytes HeadAnswer(const ServiceFaults& faults, std::size_t at_most = 2000) {
    service_->SetFaults(faults);
    Link link(service_->port());
    link.Send(Link::Request(kServiceHeadRegister, 256));
    return link.Receive(at_most);
  }

  std::unique_ptr<CommandService> service_;
};

TEST_F(CommandServiceTest, TheMainRegisterStreamsTheHeadPageAndThenTheMainPages) {
  Link link(service_->port());
  EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0xAA));
  EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0x11));
  EXPECT_EQ(link.Read(kServiceHeadRegister, 256), Page(0xAA));  // does not move the stream
  EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0x22));
  EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0xFF));  // past the end
  EXPECT_EQ(service_->received_requests(), 5);
}

TEST_F(CommandServiceTest, EachConnectionBeginsTheStreamAnew) {
  for (int round = 0; round < 2; ++round) {
    Link link(service_->port());
    EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0xAA));
    EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0x11));
  }
  EXPECT_EQ(service_->accepted_connections(), 2);
}

TEST_F(CommandServiceTest, ShortReadsTakeTheOneByteLength) {
  Link link(service_->port());
  link.Send({'G', 't', 0xFF, 0, 0, 0, 0, 10, 0, 0, 1, 0x23, 0x40, 2, 0xA0, 0x2C, 1, 2});
  EXPECT_THAT(link.Receive(10), ElementsAre('G', 't', 0xFF, 0, 0, 0, 0, 2, 0xAA, 0xAA));
}

TEST_F(CommandServiceTest, UnknownCommandsAndRegistersHaveReturnCodes) {
  Link link(service_->port());
  Bytes request = Link::Request(kServiceHeadRegister, 256);
  request[2] = 0x01;
  link.Send(request);
  EXPECT_THAT(link.Receive(8), ElementsAre('G', 't', 1, 1, 0, 0, 0, 0));
  link.Send(Link::Request(0xA02D, 256));
  EXPECT_THAT(link.Receive(8), ElementsAre('G', 't', 0xFF, 2, 0, 0, 0, 0));
  EXPECT_EQ(link.Read(kServiceHeadRegister, 256), Page(0xAA));  // still in step
}

TEST_F(CommandServiceTest, BytesThatAreNoRequestEndTheConnection) {
  Link link(service_->port());
  link.Send({'G', 'x', 0xFF, 0, 0, 0, 0, 0});
  EXPECT_TRUE(link.Receive(1).empty());
  Link large(service_->port());
  large.Send({'G', 't', 0xFF, 0, 0xFF, 0xFF, 0xFF, 0xFF});
  EXPECT_TRUE(large.Receive(1).empty());
}

TEST_F(CommandServiceTest, NewContentHoldsFromTheNextConnection) {
  service_->SetContent({Page(0x77), {}});
  Link link(service_->port());
  EXPECT_EQ(link.Read(kServiceHeadRegister, 256), Page(0x77));
}

TEST_F(CommandServiceTest, HeaderFaultsChangeTheHeaderAlone) {
  ServiceFaults faults;
  faults.magic = {1, 2};
  faults.command = 3;
  faults.return_code = 4;
  faults.announced_length = 0xFFFFFFFF;
  const Bytes header{1, 2, 3, 4, 0xFF, 0xFF, 0xFF, 0xFF};
  Bytes want(264, 0xAA);
  std::copy(header.begin(), header.end(), want.begin());
  EXPECT_EQ(HeadAnswer(faults, 264), want);
}

TEST_F(CommandServiceTest, PayloadFaultsKeepTheHeaderTrue) {
  ServiceFaults faults;
  faults.front_bytes = 2;
  faults.missing_bytes = 255;
  faults.flip_at = 0;
  faults.flip_mask = 0x0F;
  EXPECT_THAT(HeadAnswer(faults, 11), ElementsAre('G', 't', 0xFF, 0, 0, 0, 0, 3, 0xEE, 0xEE, 0xA5));
  faults.missing_bytes = 9999;
  EXPECT_THAT(HeadAnswer(faults, 10), ElementsAre('G', 't', 0xFF, 0, 0, 0, 0, 2, 0xEE, 0xEE));
}

TEST_F(CommandServiceTest, AConnectionClosesAfterItsBytes) {
  ServiceFaults faults;
  for (std::size_t bytes : {0U, 1U, 8U, 100U, 264U}) {
    faults.close_after_bytes = bytes;
    EXPECT_EQ(HeadAnswer(faults).size(), bytes);
  }
  faults = {};
  faults.close_before_answer = true;
  EXPECT_TRUE(HeadAnswer(faults).empty());
}

TEST_F(CommandServiceTest, ResponseFaultsHoldForTheExchangeThatIsNamed) {
  ServiceFaults faults;
  faults.on_register = kServiceMainRegister;
  faults.on_exchange = 1;
  faults.flip_at = 3;
  service_->SetFaults(faults);
  Bytes flipped = Page(0x11);
  flipped[3] = 0x10;
  for (int round = 0; round < 2; ++round) {
    Link link(service_->port());
    EXPECT_EQ(link.Read(kServiceHeadRegister, 256), Page(0xAA));
    EXPECT_EQ(link.Read(kServiceHeadRegister, 256), Page(0xAA));
    EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0xAA));
    EXPECT_EQ(link.Read(kServiceMainRegister, 256), flipped);
    EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0x22));
  }
}

TEST_F(CommandServiceTest, FaultsHoldForTheConnectionThatIsNamed) {
  ServiceFaults faults;
  faults.on_connection = 1;
  faults.close_after_bytes = 5;
  EXPECT_EQ(HeadAnswer(faults, 264).size(), 264U);
  EXPECT_EQ(HeadAnswer(faults).size(), 5U);
  EXPECT_EQ(HeadAnswer(faults, 264).size(), 264U);
}

TEST_F(CommandServiceTest, ABlankSensorReadsAsOnesThroughout) {
  ServiceFaults faults;
  faults.blank = true;
  service_->SetFaults(faults);
  Link link(service_->port());
  EXPECT_EQ(link.Read(kServiceHeadRegister, 256), Page(0xFF));
  EXPECT_EQ(link.Read(kServiceMainRegister, 256), Page(0xFF));
}

TEST_F(CommandServiceTest, PiecesComeWithPausesBetween) {
  ServiceFaults faults;
  faults.header_piece_bytes = 2;
  faults.body_piece_bytes = 64;
  faults.piece_gap_ms = 10;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(HeadAnswer(faults, 264).size(), 264U);
  // Eight pieces, the last without a pause before its arrival.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(70));
}

TEST_F(CommandServiceTest, StallsGiveWhatCameBeforeAndEndWithThePeerOrTheService) {
  struct Case {
    StallPhase phase;
    std::size_t bytes;
  };
  for (const Case& c : {Case{StallPhase::kAfterAccept, 0}, Case{StallPhase::kBeforeHeader, 0},
                        Case{StallPhase::kInBody, 8 + 128}}) {
    ServiceFaults faults;
    faults.stall = c.phase;
    EXPECT_EQ(HeadAnswer(faults, c.bytes).size(), c.bytes);
    // The peer has gone: the next one is served.
    EXPECT_EQ(HeadAnswer({}, 264).size(), 264U);
  }
  ServiceFaults faults;
  faults.stall = StallPhase::kBeforeHeader;
  service_->SetFaults(faults);
  Link link(service_->port());
  link.Send(Link::Request(kServiceHeadRegister, 256));
  service_.reset();  // does not wait for the peer
  EXPECT_TRUE(link.Receive(1).empty());
}

TEST(CommandServiceStart, AnAddressThatCannotBeBoundIsReported) {
  EXPECT_THROW(CommandService({}, "no address"), std::runtime_error);
  EXPECT_THROW(CommandService({}, "203.0.113.1"), std::runtime_error);  // not ours
  CommandService first({});
  EXPECT_THROW(CommandService({}, "127.0.0.1", first.port()), std::runtime_error);
}

}  // namespace
}  // namespace kerul::lidar::simulator
