#include "calibration/rcx_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "calibration/recorded_timeouts.h"
#include "calibration/scripted_recv.h"
#include "calibration/thrown_text.h"
#include "calibration/wire_peer.h"
#include "sensor_simulator/command_service.h"

namespace kerul::lidar {
namespace {

using simulator::CommandService;
using simulator::ServiceContent;
using simulator::ServiceFaults;
using simulator::StallPhase;
using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::uint16_t kHead = 0xA02C;
constexpr std::uint16_t kMain = 0xA01C;

// 0, 1, .. 255.
Bytes CountedPage() {
  Bytes page(256);
  for (std::size_t i = 0; i < page.size(); ++i) page[i] = static_cast<std::uint8_t>(i);
  return page;
}

Bytes Response(std::uint8_t return_code, std::uint32_t length, const Bytes& payload) {
  Bytes frame{'G', 't', 0xFF, return_code};
  for (unsigned shift : {24U, 16U, 8U, 0U}) {
    frame.push_back(static_cast<std::uint8_t>(length >> shift));
  }
  frame.insert(frame.end(), payload.begin(), payload.end());
  return frame;
}

// A service with a counted head page and what a read of it gives under faults.
class RcxClientAgainstService : public testing::Test {
 protected:
  Bytes ReadHead(const ServiceFaults& faults, double timeout_s = 1.0) {
    service_.SetFaults(faults);
    RcxClient client(kLoopback, service_.port(), timeout_s);
    return client.ReadIicRegMulti(0x40, kHead, 256);
  }
  std::string HeadError(const ServiceFaults& faults, double timeout_s = 1.0) {
    return ThrownText([&] { ReadHead(faults, timeout_s); });
  }

  CommandService service_{ServiceContent{CountedPage(), {}}};
};

TEST(RcxClientHex, LowByteOnlyInUpperCase) {
  EXPECT_EQ(RcxClient::HexU8(0), "00");
  EXPECT_EQ(RcxClient::HexU8(0xAB), "AB");
  EXPECT_EQ(RcxClient::HexU8(0x12F), "2F");
}

TEST(RcxClientBuildPayload, BlanksTabsAndBothCasesAreAccepted) {
  EXPECT_THAT(RcxClient::BuildPayload(255, " 0 0\taF Fa\t"),
              ElementsAre('G', 't', 0xFF, 0x00, 0xAF, 0xFA));
}

TEST(RcxClientBuildPayload, WritesThreeBytesAloneForAnEmptyText) {
  EXPECT_THAT(RcxClient::BuildPayload(0x1A5, ""), ElementsAre('G', 't', 0xA5));
}

TEST(RcxClientBuildPayload, AnOddNumberOfDigitsIsRefused) {
  EXPECT_EQ(InvalidArgumentText([] { RcxClient::BuildPayload(255, "123"); }),
            "RCX payload hex length must be even");
  // The blanks do not count, and the length is checked before the characters.
  EXPECT_EQ(InvalidArgumentText([] { RcxClient::BuildPayload(255, "1 2 G"); }),
            "RCX payload hex length must be even");
}

TEST(RcxClientBuildPayload, AnotherCharacterIsRefusedInEitherPlace) {
  for (const char* text : {"G0", "0G", "0g", "0x", "0\n", "@0", "`0", ":0", "/0"}) {
    EXPECT_EQ(InvalidArgumentText([&] { RcxClient::BuildPayload(255, text); }),
              "invalid hex character")
        << text;
  }
}

TEST(RcxClientWire, AReadOf256BytesGoesOutAsTheseTwentyBytes) {
  WirePeer peer(20, Response(0, 256, CountedPage()), PeerEnd::kKeepOpen);
  {
    RcxClient client(kLoopback, peer.port(), 1.0);
    EXPECT_EQ(client.ReadIicRegMulti(0x40, kHead, 256), CountedPage());
  }
  EXPECT_THAT(peer.Received(),
              ElementsAre(0x47, 0x74, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x00, 0x00, 0x01, 0x23,
                          0x40, 0x02, 0xA0, 0x2C, 0x01, 0xFF, 0x01, 0x00));
}

TEST(RcxClientWire, LengthsUpTo32TakeOneByte) {
  WirePeer peer(18, Response(0, 32, Bytes(32, 7)), PeerEnd::kKeepOpen);
  {
    RcxClient client(kLoopback, peer.port(), 1.0);
    EXPECT_EQ(client.ReadIicRegMulti(0x0A, 0x00BC, 32), Bytes(32, 7));
  }
  EXPECT_THAT(peer.Received(), ElementsAre(0x47, 0x74, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x0A, 0x00,
                                           0x00, 0x01, 0x23, 0x0A, 0x02, 0x00, 0xBC, 0x01, 0x20));
}

TEST(RcxClientWire, LengthsAbove32TakeThreeBytes) {
  WirePeer peer(20, Response(0, 33, Bytes(33, 7)), PeerEnd::kKeepOpen);
  {
    RcxClient client(kLoopback, peer.port(), 1.0);
    EXPECT_EQ(client.ReadIicRegMulti(0xFE, 0xFFFF, 33), Bytes(33, 7));
  }
  EXPECT_THAT(peer.Received(),
              ElementsAre(0x47, 0x74, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x0C, 0x00, 0x00, 0x01, 0x23,
                          0xFE, 0x02, 0xFF, 0xFF, 0x01, 0xFF, 0x00, 0x21));
}

TEST(RcxClientWire, AnExchangeGivesHeaderAndPayloadAndAnEmptyRequestSendsNothing) {
  const Bytes answer = Response(0, 3, {1, 2, 3});
  WirePeer peer(0, answer, PeerEnd::kKeepOpen);
  {
    RcxClient client(kLoopback, peer.port(), 1.0);
    EXPECT_EQ(client.SendAndReceive({}), answer);
  }
  EXPECT_TRUE(peer.Received().empty());
}

TEST(RcxClientWire, APeerThatClosedGivesAnErrorAndNoSignal) {
  WirePeer peer(0, {}, PeerEnd::kClose);
  RcxClient client(kLoopback, peer.port(), 1.0);
  peer.Received();  // closed by now
  const Bytes request(20, 0);
  std::string text;
  // The first request still goes out, into the void; the answer to it breaks the connection.
  for (int attempt = 0; attempt < 100 && text != "RCX send failed"; ++attempt) {
    text = ThrownText([&] { client.SendAndReceive(request); });
    EXPECT_TRUE(text == "RCX send failed" || text == "RCX read header failed") << text;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(text, "RCX send failed");
}

TEST(RcxClientWire, ALengthOfFourGibibytesCostsNoMemory) {
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  WirePeer peer(20, Response(0, 0xFFFFFFFF, Bytes(1000, 1)), PeerEnd::kClose);
  RcxClient client(kLoopback, peer.port(), 1.0);
  ScriptedRecv calls({8, 1000});
  EXPECT_EQ(ThrownText([&] { client.ReadIicRegMulti(0x40, kHead, 256); }), "RCX read body failed");
  ASSERT_EQ(calls.asked().size(), 6U);  // the header's one and the payload's five
  for (std::size_t asked : calls.asked()) EXPECT_LE(asked, std::size_t{1} << 20U);
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024);  // KiB
}

TEST_F(RcxClientAgainstService, TheTimeOutHoldsForBothDirectionsToTheMicrosecond) {
  RecordedTimeouts timeouts;
  { const RcxClient client(kLoopback, service_.port(), 2.25); }
  { const RcxClient client(kLoopback, service_.port(), 0.5); }
  EXPECT_THAT(timeouts.receiving, ElementsAre(2250000, 500000));
  EXPECT_THAT(timeouts.sending, ElementsAre(2250000, 500000));
}

TEST(RcxClientConnect, AHostThatIsNoAddressIsNamed) {
  EXPECT_EQ(ThrownText([] { RcxClient client("sensor.local", 9347, 1.0); }),
            "RCX: invalid IP sensor.local");
  EXPECT_EQ(ThrownText([] { RcxClient client("", 9347, 1.0); }), "RCX: invalid IP ");
}

TEST(RcxClientConnect, ARefusedConnectionIsNamedWithHostAndPort) {
  const int port = ClosedPort();
  EXPECT_EQ(ThrownText([&] { RcxClient client(kLoopback, port, 1.0); }),
            "RCX: connect to 127.0.0.1:" + std::to_string(port) + " failed");
}

TEST(RcxClientConnect, NoDescriptorLeft) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  rlimit none = limit;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  // The limit is restored before the exception is examined: the sanitizers need descriptors for
  // that.
  const std::string text = ThrownText([&] {
    try {
      RcxClient client(kLoopback, 9347, 1.0);
    } catch (const std::runtime_error&) {
      setrlimit(RLIMIT_NOFILE, &limit);
      throw;
    }
  });
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(text, "RCX: socket() failed");
}

TEST(RcxClientConnect, FailedConstructionsLeaveNoDescriptorOpen) {
  const auto next_descriptor = [] {
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    close(descriptor);
    return descriptor;
  };
  const int before = next_descriptor();
  const int port = ClosedPort();
  ThrownText([] { RcxClient client("nowhere", 1, 1.0); });
  ThrownText([&] { RcxClient client(kLoopback, port, 1.0); });
  EXPECT_EQ(next_descriptor(), before);
}

// What the header's and the payload's five calls may bring. One response of 8 + 256 bytes.
std::string ReadWithCalls(const std::vector<int>& script, std::vector<std::size_t>* asked) {
  WirePeer peer(20, Response(0, 256, CountedPage()), PeerEnd::kKeepOpen);
  RcxClient client(kLoopback, peer.port(), 1.0);
  ScriptedRecv calls(script);
  std::string text = "read";
  try {
    if (client.ReadIicRegMulti(0x40, kHead, 256) != CountedPage()) text = "wrong bytes";
  } catch (const std::runtime_error& error) {
    text = error.what();
  }
  if (asked != nullptr) *asked = calls.asked();
  return text;
}

TEST(RcxClientCalls, EachCallAsksForTheBytesStillMissing) {
  std::vector<std::size_t> asked;
  EXPECT_EQ(ReadWithCalls({3, 5, 100, 156}, &asked), "read");
  EXPECT_THAT(asked, ElementsAre(8, 5, 256, 156));
}

TEST(RcxClientCalls, TheHeaderMayTakeFiveCallsAndNoMore) {
  std::vector<std::size_t> asked;
  EXPECT_EQ(ReadWithCalls({1, 1, 1, 1, 4, 256}, &asked), "read");
  EXPECT_THAT(asked, ElementsAre(8, 7, 6, 5, 4, 256));
  EXPECT_EQ(ReadWithCalls({1, 1, 1, 1, 3, 1}, &asked), "RCX read header failed");
  EXPECT_EQ(asked.size(), 5U);
}

TEST(RcxClientCalls, ThePayloadMayTakeFiveCallsAndNoMore) {
  std::vector<std::size_t> asked;
  EXPECT_EQ(ReadWithCalls({8, 1, 1, 1, 1, 252}, &asked), "read");
  EXPECT_THAT(asked, ElementsAre(8, 256, 255, 254, 253, 252));
  EXPECT_EQ(ReadWithCalls({8, 1, 1, 1, 1, 251, 1}, &asked), "RCX read body failed");
  EXPECT_EQ(asked.size(), 6U);
}

TEST(RcxClientCalls, ACallWithoutAResultIsOneOfTheFive) {
  std::vector<std::size_t> asked;
  EXPECT_EQ(ReadWithCalls({-1, 0, -1, 0, 8, 0, -1, -1, -1, 256}, &asked), "read");
  EXPECT_THAT(asked, ElementsAre(8, 8, 8, 8, 8, 256, 256, 256, 256, 256));
  EXPECT_EQ(ReadWithCalls({0, 0, 0, 0, -1}, &asked), "RCX read header failed");
  EXPECT_EQ(asked.size(), 5U);
  EXPECT_EQ(ReadWithCalls({8, 0, 255, 0, 0, -1}, &asked), "RCX read body failed");
  EXPECT_EQ(asked.size(), 6U);
}

TEST_F(RcxClientAgainstService, ReadsWhatTheRegisterHolds) {
  EXPECT_EQ(ReadHead({}), CountedPage());
}

TEST_F(RcxClientAgainstService, LengthsOutsideTheRangeAreRefusedBeforeAnythingIsSent) {
  RcxClient client(kLoopback, service_.port(), 1.0);
  for (int length : {0, -1, 1025, 1 << 20}) {
    EXPECT_EQ(InvalidArgumentText([&] { client.ReadIicRegMulti(0x40, kHead, length); }),
              "RCX IIC data_len must be 1..1024");
  }
  EXPECT_EQ(client.ReadIicRegMulti(0x40, kHead, 1), Bytes{0});
  EXPECT_EQ(service_.received_requests(), 1);  // the valid read alone
  EXPECT_EQ(client.ReadIicRegMulti(0x40, kHead, 1024).size(), 1024U);
}

TEST_F(RcxClientAgainstService, OneClientServesManyReadsAndLeavesItsConnection) {
  {
    RcxClient client(kLoopback, service_.port(), 1.0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(client.ReadIicRegMulti(0x40, kHead, 256), CountedPage());
  }
  EXPECT_EQ(ReadHead({}), CountedPage());  // the service takes one connection at a time
  EXPECT_EQ(service_.accepted_connections(), 2);
}

TEST_F(RcxClientAgainstService, AnAnswerInManyPiecesFailsThoughEachPieceCameInTime) {
  ServiceFaults faults;
  faults.piece_gap_ms = 30;
  faults.header_piece_bytes = 1;
  EXPECT_EQ(HeadError(faults), "RCX read header failed");
  faults.header_piece_bytes = 0;
  faults.body_piece_bytes = 16;
  EXPECT_EQ(HeadError(faults), "RCX read body failed");
}

TEST_F(RcxClientAgainstService, AnErrorCodeIsReportedBehindTheBodySoThatTheStreamStaysInStep) {
  ServiceFaults faults;
  faults.return_code = 0xA7;
  faults.on_exchange = 0;
  service_.SetFaults(faults);
  RcxClient client(kLoopback, service_.port(), 1.0);
  EXPECT_EQ(ThrownText([&] { client.ReadIicRegMulti(0x40, kHead, 256); }),
            "RCX return error code=0xA7");
  EXPECT_EQ(client.ReadIicRegMulti(0x40, kHead, 256), CountedPage());
}

TEST_F(RcxClientAgainstService, TheSmallestReturnCodeAboveZeroIsAnErrorToo) {
  ServiceFaults faults;
  faults.return_code = 1;
  EXPECT_EQ(HeadError(faults), "RCX return error code=0x01");
}

TEST_F(RcxClientAgainstService, AnotherCommandByteIsAccepted) {
  ServiceFaults faults;
  faults.command = 0x00;
  EXPECT_EQ(ReadHead(faults), CountedPage());
}

TEST_F(RcxClientAgainstService, OfALongerPayloadTheLastBytesCount) {
  ServiceFaults faults;
  faults.front_bytes = 9;
  EXPECT_EQ(ReadHead(faults), CountedPage());
}

TEST_F(RcxClientAgainstService, ATooShortPayloadIsReportedWithBothNumbers) {
  ServiceFaults faults;
  faults.missing_bytes = 256;
  EXPECT_EQ(HeadError(faults), "RCX read payload too short: need=256 bytes, got=0");
  faults.missing_bytes = 1;
  EXPECT_EQ(HeadError(faults), "RCX read payload too short: need=256 bytes, got=255");
}

TEST_F(RcxClientAgainstService, EitherMagicByteCounts) {
  ServiceFaults faults;
  faults.magic = {0x48, 0x74};
  EXPECT_EQ(HeadError(faults), "RCX read header failed");
  faults.magic = {0x47, 0x54};
  EXPECT_EQ(HeadError(faults), "RCX read header failed");
}

TEST_F(RcxClientAgainstService, AnAnnouncedLengthThatNeverComesFailsInTheBody) {
  ServiceFaults faults;
  faults.announced_length = 257;
  EXPECT_EQ(HeadError(faults, 0.02), "RCX read body failed");
  faults.announced_length = 0xFFFFFFFF;
  EXPECT_EQ(HeadError(faults, 0.02), "RCX read body failed");
}

TEST_F(RcxClientAgainstService, AnAnnouncedLengthThatIsTooSmallIsTakenAtItsWord) {
  ServiceFaults faults;
  faults.announced_length = 255;
  EXPECT_EQ(HeadError(faults), "RCX read payload too short: need=256 bytes, got=255");
}

TEST_F(RcxClientAgainstService, StallsEndAfterFiveTimeOuts) {
  for (StallPhase phase : {StallPhase::kAfterAccept, StallPhase::kBeforeHeader}) {
    ServiceFaults faults;
    faults.stall = phase;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(HeadError(faults, 0.05), "RCX read header failed");
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(240));  // five times 50, less the timer's grain
    EXPECT_LT(waited, std::chrono::seconds(10));
  }
  ServiceFaults faults;
  faults.stall = StallPhase::kInBody;
  EXPECT_EQ(HeadError(faults, 0.05), "RCX read body failed");
}

TEST_F(RcxClientAgainstService, AConnectionThatClosesFailsInTheHeaderOrInTheBody) {
  ServiceFaults faults;
  for (std::uint64_t bytes : {0U, 1U, 7U}) {
    faults.close_after_bytes = bytes;
    EXPECT_EQ(HeadError(faults), "RCX read header failed") << bytes;
  }
  for (std::uint64_t bytes : {8U, 9U, 263U}) {
    faults.close_after_bytes = bytes;
    EXPECT_EQ(HeadError(faults), "RCX read body failed") << bytes;
  }
  faults.close_after_bytes = 264;
  EXPECT_EQ(ReadHead(faults), CountedPage());
}

TEST(RcxClientPayload, AResponseShorterThanItsHeaderOrItsLengthIsRefused) {
  using rcx_client_detail::TailOfPayload;
  EXPECT_EQ(ThrownText([] { TailOfPayload(Bytes(7), 1); }), "RCX response too short");
  EXPECT_EQ(ThrownText([] {
              TailOfPayload(Response(0, 5, {1, 2, 3, 4}), 1);
            }),
            "RCX response payload truncated");
  EXPECT_EQ(ThrownText([] { TailOfPayload(Response(0, 0xFFFFFFFF, {}), 1); }),
            "RCX response payload truncated");
}

TEST(RcxClientPayload, BytesBehindTheStatedLengthAreIgnored) {
  EXPECT_THAT(rcx_client_detail::TailOfPayload(Response(0, 3, {1, 2, 3, 4, 5}), 2),
              ElementsAre(2, 3));
}

TEST(RcxClientPayload, ThePrefixLengthHasItsLimits) {
  using rcx_client_detail::CheckPrefixLength;
  EXPECT_NO_THROW(CheckPrefixLength(1));
  EXPECT_NO_THROW(CheckPrefixLength(0xFFFFFFFFFFULL));
  for (std::uint64_t length : {std::uint64_t{0}, std::uint64_t{0x10000000000ULL}}) {
    EXPECT_EQ(InvalidArgumentText([&] { CheckPrefixLength(length); }),
              "RCX IIC prefix length out of range");
  }
}

TEST_F(RcxClientAgainstService, TheMainRegisterIsReadableAsWell) {
  RcxClient client(kLoopback, service_.port(), 1.0);
  EXPECT_EQ(client.ReadIicRegMulti(0x40, kMain, 256), CountedPage());
  EXPECT_EQ(client.ReadIicRegMulti(0x40, kMain, 256), Bytes(256, 0xFF));
}

}  // namespace
}  // namespace kerul::lidar
