#include "source/pcap_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "source/loopback.h"
#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kMagic = 0xA1B2C3D4;

void AppendWord(Bytes& bytes, std::uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

void Append(Bytes& bytes, const Bytes& more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

// A capture file without records.
Bytes Capture(std::uint32_t magic = kMagic) {
  Bytes bytes;
  AppendWord(bytes, magic);
  Append(bytes, Bytes(16));
  AppendWord(bytes, 1);  // Ethernet
  return bytes;
}

void AppendRecord(Bytes& capture, std::uint32_t included_length, const Bytes& frame) {
  AppendWord(capture, 12);
  AppendWord(capture, 34);
  AppendWord(capture, included_length);
  AppendWord(capture, included_length);
  Append(capture, frame);
}

Bytes CaptureOf(const std::vector<Bytes>& frames) {
  Bytes capture = Capture();
  for (const Bytes& frame : frames) {
    AppendRecord(capture, static_cast<std::uint32_t>(frame.size()), frame);
  }
  return capture;
}

// A frame of `headers` bytes with the protocol byte at its place, and the payload after them.
Bytes Frame(const Bytes& ethertypes, std::size_t protocol_at, std::uint8_t protocol,
            std::size_t headers, const Bytes& payload) {
  Bytes frame(headers);
  for (std::size_t i = 0; i < ethertypes.size(); ++i) frame[12 + i] = ethertypes[i];
  frame[protocol_at] = protocol;
  Append(frame, payload);
  return frame;
}

Bytes Ipv4(std::uint8_t protocol, const Bytes& payload) {
  return Frame({0x08, 0x00}, 23, protocol, 42, payload);
}

Bytes Ipv6(std::uint8_t protocol, const Bytes& payload) {
  return Frame({0x86, 0xDD}, 20, protocol, 62, payload);
}

Bytes VlanIpv4(std::uint8_t protocol, const Bytes& payload) {
  return Frame({0x81, 0x00, 0, 5, 0x08, 0x00}, 27, protocol, 46, payload);
}

Bytes VlanIpv6(std::uint8_t protocol, const Bytes& payload) {
  return Frame({0x81, 0x00, 0, 5, 0x86, 0xDD}, 27, protocol, 66, payload);
}

Bytes Counting(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  return bytes;
}

class PcapSourceTest : public ::testing::Test {
 protected:
  PcapSourceTest() {
    std::memset(packet_.buffer, 0xEE, sizeof packet_.buffer);
    packet_.length = 4321;
  }

  void Write(const Bytes& bytes) const { directory_.Write("some.pcap", bytes); }

  // A source on a file of these bytes, opened.
  PcapSource& Opened(const Bytes& bytes) {
    Write(bytes);
    source_ = std::make_unique<PcapSource>(path_);
    Printed([this] { EXPECT_TRUE(source_->Open()); });
    return *source_;
  }

  // What Open throws, empty when it doesn't.
  std::string OpenError(PcapSource& source) const {
    std::string text;
    Printed([&] {
      try {
        source.Open();
      } catch (const std::runtime_error& error) {
        text = error.what();
      }
    });
    return text;
  }

  int Receive() { return source_->Receive(packet_, 1500, 0, 1000); }
  Bytes Head(std::size_t count) const { return Bytes(packet_.buffer, packet_.buffer + count); }

  testing::TempDir directory_;
  std::string path_ = directory_.File("some.pcap");
  std::unique_ptr<PcapSource> source_;
  UdpPacket packet_{};
};

TEST_F(PcapSourceTest, NamesItselfAndStartsClosed) {
  PcapSource source(path_);
  EXPECT_EQ(source.GetType(), "PCAP");
  EXPECT_FALSE(source.IsOpened());
}

TEST_F(PcapSourceTest, OpenSaysWhichFile) {
  Write(Capture());
  PcapSource source(path_);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(source.Open()); }),
            "[INFO] Trying to open pcap file: \"" + path_ + "\"\n");
  EXPECT_TRUE(source.IsOpened());
}

TEST_F(PcapSourceTest, AMissingFileThrows) {
  PcapSource source(path_);
  EXPECT_EQ(OpenError(source), "Fail to open .pcap file: \"" + path_ + "\"");
  EXPECT_FALSE(source.IsOpened());
}

TEST_F(PcapSourceTest, ADirectoryThrowsLikeAMissingFile) {
  PcapSource source(directory_.path().string());
  EXPECT_EQ(OpenError(source), "Fail to open .pcap file: \"" + directory_.path().string() + "\"");
}

// Nothing writes to its other end: an ordinary open would wait for ever.
TEST_F(PcapSourceTest, AFifoThrowsLikeAMissingFile) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  PcapSource source(path_);
  EXPECT_EQ(OpenError(source), "Fail to open .pcap file: \"" + path_ + "\"");
}

TEST_F(PcapSourceTest, AnotherLinkTypeIsTold) {
  Bytes bytes = Capture();
  bytes[20] = 113;
  Write(bytes);
  PcapSource source(path_);
  ::testing::internal::CaptureStderr();
  Printed([&] { EXPECT_TRUE(source.Open()); });
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::StartsWith("[WARN] pcap file \"" + path_ + "\": the frames' link type"));
}

TEST_F(PcapSourceTest, AnEmptyFileIsNoCapture) {
  Write({});
  PcapSource source(path_);
  EXPECT_EQ(OpenError(source), "Not a valid .pcap file: \"" + path_ + "\"");
}

TEST_F(PcapSourceTest, AFileShorterThanItsHeaderIsNoCapture) {
  Bytes bytes = Capture();
  bytes.pop_back();
  Write(bytes);
  PcapSource source(path_);
  EXPECT_EQ(OpenError(source), "Not a valid .pcap file: \"" + path_ + "\"");
}

TEST_F(PcapSourceTest, OtherMagicsAreRefused) {
  // The other byte order, nanoseconds, the newer block format.
  for (const std::uint32_t magic : {0xD4C3B2A1U, 0xA1B23C4DU, 0x0A0D0D0AU}) {
    Write(Capture(magic));
    PcapSource source(path_);
    EXPECT_EQ(OpenError(source), "Not a valid .pcap file: \"" + path_ + "\"");
  }
}

TEST_F(PcapSourceTest, OnlyTheMagicOfTheHeaderCounts) {
  Bytes bytes = Capture();
  std::fill(bytes.begin() + 4, bytes.end(), std::uint8_t{0xFF});
  Opened(bytes);
  EXPECT_TRUE(source_->IsOpened());
}

TEST_F(PcapSourceTest, AFileOfNothingButItsHeaderEndsAtOnce) {
  Opened(Capture());
  EXPECT_TRUE(source_->IsOpened());
  EXPECT_EQ(Receive(), -1);
  EXPECT_FALSE(source_->IsOpened());
  EXPECT_EQ(Receive(), -1);
  EXPECT_EQ(packet_.length, 4321);
}

// Each record of these files is of second 12, microsecond 34.
TEST_F(PcapSourceTest, TellsWhenTheFrameTakenLastWasCaptured) {
  PcapSource& source = Opened(CaptureOf({Ipv4(17, Counting(20))}));
  EXPECT_EQ(source.CaptureTimeUs(), 0);
  source.Receive(packet_, 0, 0, 0);
  EXPECT_EQ(source.CaptureTimeUs(), 12'000'034);
}

TEST_F(PcapSourceTest, GivesThePayloadOfIpv4) {
  Opened(CaptureOf({Ipv4(17, {0xEE, 0xFF, 3, 4, 5})}));
  EXPECT_EQ(Receive(), 5);
  EXPECT_EQ(packet_.length, 5);
  EXPECT_EQ(Head(6), (Bytes{0xEE, 0xFF, 3, 4, 5, 0xEE}));
}

TEST_F(PcapSourceTest, GivesThePayloadOfIpv6) {
  Opened(CaptureOf({Ipv6(17, {1, 2, 3})}));
  EXPECT_EQ(Receive(), 3);
  EXPECT_EQ(packet_.length, 3);
  EXPECT_EQ(Head(4), (Bytes{1, 2, 3, 0xEE}));
}

TEST_F(PcapSourceTest, GivesThePayloadOfIpv4BehindAVlanTag) {
  Opened(CaptureOf({VlanIpv4(17, {1, 2, 3, 4})}));
  EXPECT_EQ(Receive(), 4);
  EXPECT_EQ(packet_.length, 4);
  EXPECT_EQ(Head(5), (Bytes{1, 2, 3, 4, 0xEE}));
}

TEST_F(PcapSourceTest, Ipv6BehindAVlanTagLeavesTheEarlierPayload) {
  Opened(CaptureOf({Ipv4(17, {7, 8, 9}), VlanIpv6(17, Counting(20))}));
  EXPECT_EQ(Receive(), 3);
  EXPECT_EQ(Receive(), 20);
  EXPECT_EQ(packet_.length, 20);
  EXPECT_EQ(Head(4), (Bytes{7, 8, 9, 0xEE}));
}

TEST_F(PcapSourceTest, AFrameOfExactlyItsHeadersGivesZeroAndLeavesThePacket) {
  Opened(CaptureOf({Ipv4(17, {}), Ipv6(17, {}), VlanIpv4(17, {}), VlanIpv6(17, {})}));
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(Receive(), 0);
    EXPECT_EQ(packet_.length, 4321);
    EXPECT_EQ(packet_.buffer[0], 0xEE);
  }
  EXPECT_TRUE(source_->IsOpened());
}

TEST_F(PcapSourceTest, AFrameShorterThanItsHeadersGivesTheDifferenceAndLeavesThePacket) {
  Bytes frame = Ipv4(17, {});
  frame.resize(30);
  Opened(CaptureOf({frame}));
  EXPECT_EQ(Receive(), 30 - 42);
  EXPECT_EQ(packet_.length, 4321);
  EXPECT_EQ(packet_.buffer[0], 0xEE);
}

TEST_F(PcapSourceTest, BytesBehindAShortFrameAreThoseOfEarlierFrames) {
  // 14 bytes: the protocol is read from where the frame of before had it.
  Bytes shortened = Ipv4(0, {});
  shortened.resize(14);
  Opened(CaptureOf({shortened, Ipv4(17, {1}), shortened, Ipv4(6, {}), shortened}));
  EXPECT_EQ(Receive(), 2);  // zero at first
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(Receive(), 14 - 42);
  EXPECT_EQ(Receive(), 2);
  EXPECT_EQ(Receive(), 2);
}

TEST_F(PcapSourceTest, AnEmptyFrameIsTakenForWhatStoodThereBefore) {
  Opened(CaptureOf({{}, Ipv4(17, {1}), {}}));
  EXPECT_EQ(Receive(), 1);  // no Ethertype yet
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(Receive(), -42);
  EXPECT_EQ(Receive(), -1);
  EXPECT_FALSE(source_->IsOpened());
}

TEST_F(PcapSourceTest, ALongFrameIsPassedOver) {
  Opened(CaptureOf({Bytes(1600, 1), Ipv4(17, {5})}));
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(packet_.length, 1);
  EXPECT_EQ(packet_.buffer[0], 0xEE);
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(packet_.buffer[0], 5);
  EXPECT_EQ(Receive(), -1);
  EXPECT_FALSE(source_->IsOpened());
}

TEST_F(PcapSourceTest, FramesUpTo1500BytesAreRead) {
  Opened(CaptureOf({Ipv4(17, Bytes(1500 - 42, 6)), Ipv4(17, Bytes(1501 - 42, 7))}));
  EXPECT_EQ(Receive(), 1458);
  EXPECT_EQ(packet_.buffer[1457], 6);
  EXPECT_EQ(packet_.buffer[1458], 0xEE);
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(packet_.buffer[0], 6);
}

TEST_F(PcapSourceTest, OtherEthertypesGiveOne) {
  const Bytes arp = Frame({0x08, 0x06}, 23, 17, 60, {});
  const Bytes swapped = Frame({0x00, 0x08}, 23, 17, 60, {});
  const Bytes zero = Frame({0x00, 0x00}, 23, 17, 60, {});
  Opened(CaptureOf({arp, swapped, zero}));
  for (int i = 0; i < 3; ++i) {
    packet_.length = 4321;
    EXPECT_EQ(Receive(), 1);
    EXPECT_EQ(packet_.length, 1);
    EXPECT_EQ(packet_.buffer[0], 0xEE);
  }
}

TEST_F(PcapSourceTest, OtherProtocolsGiveTwo) {
  const Bytes payload = Counting(30);
  std::vector<Bytes> frames;
  for (const std::uint8_t protocol : Bytes{6, 1, 0, 255}) {
    frames.push_back(Ipv4(protocol, payload));
    frames.push_back(Ipv6(protocol, payload));
    frames.push_back(VlanIpv4(protocol, payload));
    frames.push_back(VlanIpv6(protocol, payload));
  }
  Opened(CaptureOf(frames));
  int compared = 0;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    packet_.length = 4321;
    EXPECT_EQ(Receive(), 2) << i;
    EXPECT_EQ(packet_.length, 2);
    EXPECT_EQ(packet_.buffer[0], 0xEE);
    ++compared;
  }
  EXPECT_EQ(compared, 16);
}

TEST_F(PcapSourceTest, AnotherTypeBehindAVlanTagGivesTwo) {
  Opened(CaptureOf({Frame({0x81, 0x00, 0, 5, 0x08, 0x06}, 27, 17, 60, {}),
                    Frame({0x81, 0x00, 0, 5, 0x81, 0x00}, 27, 17, 60, {})}));
  EXPECT_EQ(Receive(), 2);
  EXPECT_EQ(Receive(), 2);
  EXPECT_EQ(packet_.length, 2);
}

TEST_F(PcapSourceTest, TheArgumentsOfReceiveAreIgnored) {
  Opened(CaptureOf({Ipv4(17, Counting(40))}));
  EXPECT_EQ(source_->Receive(packet_, 3, 99, -5), 40);
  EXPECT_EQ(Head(40), Counting(40));
}

TEST_F(PcapSourceTest, AFileCutInARecordHeaderNeverEnds) {
  Bytes bytes = CaptureOf({Ipv4(17, {1, 2})});
  bytes.insert(bytes.end(), 15, 0);
  Opened(bytes);
  EXPECT_EQ(Receive(), 2);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(Receive(), -1);
    EXPECT_TRUE(source_->IsOpened());
  }
}

TEST_F(PcapSourceTest, AFileCutInAFrameGivesNothingMore) {
  Bytes bytes = Capture();
  AppendRecord(bytes, 60, Bytes(11, 0));
  Opened(bytes);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(Receive(), -1);
    EXPECT_TRUE(source_->IsOpened());
  }
  EXPECT_EQ(packet_.length, 4321);
}

TEST_F(PcapSourceTest, AFileCutInALongFrameGivesNothingMore) {
  for (const std::uint32_t length : {1501U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    Bytes bytes = Capture();
    AppendRecord(bytes, length, Bytes(9, 0));
    Opened(bytes);
    EXPECT_EQ(Receive(), -1);
    EXPECT_EQ(Receive(), -1);
    EXPECT_TRUE(source_->IsOpened());
  }
}

TEST_F(PcapSourceTest, BehindACutFramesHeaderReadingGoesOn) {
  Bytes bytes = Capture();
  AppendRecord(bytes, 1000, {});
  AppendRecord(bytes, 44, Ipv4(17, {3, 4}));
  Opened(bytes);
  EXPECT_EQ(Receive(), -1);
  EXPECT_EQ(Receive(), 2);
  EXPECT_EQ(Head(2), (Bytes{3, 4}));
  EXPECT_EQ(Receive(), -1);
  EXPECT_FALSE(source_->IsOpened());
}

TEST_F(PcapSourceTest, RewindStartsWithTheFirstRecordAgain) {
  Opened(CaptureOf({Ipv4(17, {1}), Ipv4(17, {2, 2})}));
  for (int pass = 0; pass < 3; ++pass) {
    EXPECT_EQ(Receive(), 1);
    EXPECT_EQ(Receive(), 2);
    EXPECT_EQ(Receive(), -1);
    EXPECT_FALSE(source_->IsOpened());
    source_->Rewind();
    EXPECT_TRUE(source_->IsOpened());
  }
}

TEST_F(PcapSourceTest, OpeningAgainReadsTheFileAnew) {
  Opened(CaptureOf({Ipv4(17, {1})}));
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(Receive(), -1);
  Write(CaptureOf({Ipv4(17, {1, 2, 3})}));
  Printed([this] { EXPECT_TRUE(source_->Open()); });
  EXPECT_TRUE(source_->IsOpened());
  EXPECT_EQ(Receive(), 3);
}

TEST_F(PcapSourceTest, CloseForgetsTheFileAndPrintsNothing) {
  Opened(CaptureOf({Ipv4(17, {1})}));
  EXPECT_EQ(Printed([this] { source_->Close(); }), "");
  EXPECT_FALSE(source_->IsOpened());
  EXPECT_EQ(Receive(), -1);
  source_->Rewind();
  EXPECT_EQ(Receive(), -1) << "the read position lies past the empty data";
  EXPECT_FALSE(source_->IsOpened());
}

TEST_F(PcapSourceTest, TheEndPrintsTheBasesLine) {
  Opened(Capture());
  EXPECT_EQ(Printed([this] { source_.reset(); }), "Source::Close()\n");
}

TEST_F(PcapSourceTest, HasNoClient) {
  Opened(CaptureOf({Ipv4(17, {1})}));
  EXPECT_EQ(Printed([this] { source_->SetClientIp("10.0.0.1"); }),
            "[WARN] pcap source do not support SetClientIp\n");
  EXPECT_EQ(Printed([this] { source_->SetClientIp(""); }),
            "[WARN] pcap source do not support SetClientIp\n");
  EXPECT_EQ(Receive(), 1);
}

TEST_F(PcapSourceTest, SendsNothingAndGivesTheLength) {
  Opened(Capture());
  EXPECT_EQ(source_->Send(nullptr, 0, 0), 0);
  EXPECT_EQ(source_->Send(nullptr, 65535, 0), 65535);
}

TEST_F(PcapSourceTest, HasNoSocketBuffer) {
  Opened(Capture());
  EXPECT_EQ(Printed([this] { source_->SetSocketBufferSize(1024); }),
            "[INFO] u32BufSize 1024 is not used by pcap_source");
  EXPECT_EQ(Printed([this] { source_->SetSocketBufferSize(0xFFFFFFFF); }),
            "[INFO] u32BufSize -1 is not used by pcap_source");
}

TEST_F(PcapSourceTest, ReadsAnyBytesToAnEndWithoutHarm) {
  std::mt19937 random(11);
  int received = 0;
  for (int round = 0; round < 60; ++round) {
    std::vector<Bytes> frames;
    for (int i = 0; i < 8; ++i) {
      Bytes frame = Counting(random() % 90);
      if (frame.size() > 17 && random() % 4 != 0) {
        const Bytes type = random() % 2 == 0 ? Bytes{0x08, 0x00} : Bytes{0x81, 0x00};
        std::copy(type.begin(), type.end(), frame.begin() + 12);
        frame[16] = random() % 2 == 0 ? 0x08 : 0x86;
        frame[17] = random() % 2 == 0 ? 0x00 : 0xDD;
      }
      if (frame.size() > 27) frame[27] = frame[23] = random() % 2 == 0 ? 17 : 6;
      frames.push_back(frame);
    }
    Bytes bytes = CaptureOf(frames);
    for (int i = 0; i < 6; ++i) {
      bytes[24 + random() % (bytes.size() - 24)] = static_cast<std::uint8_t>(random());
    }
    bytes.resize(24 + random() % (bytes.size() - 24));
    Opened(bytes);
    // Every call that moves on takes at least 16 bytes.
    for (std::size_t i = 0; i < bytes.size() / 16 + 2; ++i) {
      const int result = Receive();
      EXPECT_LE(result, 1500 - 42);
      if (result > 0) {
        EXPECT_EQ(packet_.length, result);
        ++received;
      }
    }
    EXPECT_EQ(Receive(), -1);
  }
  EXPECT_GT(received, 50);
}

}  // namespace
}  // namespace kerul::lidar
