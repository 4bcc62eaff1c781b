// Which datagrams the dissector takes, and that no bytes upset it.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/raw_packet_builder.h"
#include "tools/wireshark/tshark_test_base.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::uint16_t kRawPort = 2368;
constexpr std::uint16_t kPointPort = 2369;
constexpr std::size_t kPointPacketBytes = 249;

class DatagramsOnThePorts : public TsharkTest {};

Bytes RawDatagram() {
  const UdpPacket packet = MakeRawPacket(3, 17);
  return {packet.buffer, packet.buffer + kRawPacketBytes};
}

// Begins like a packet of the version; everything else is zero.
Bytes Versioned(std::uint8_t minor, std::size_t bytes) {
  Bytes datagram(bytes, 0);
  const Bytes head{0xEE, 0xFF, 7, minor};
  std::copy_n(head.begin(), std::min(head.size(), bytes), datagram.begin());
  return datagram;
}

TEST_F(DatagramsOnThePorts, AreTakenByTheirVersionOnEitherPort) {
  FrameList frames;
  for (const std::uint16_t port : {kRawPort, kPointPort}) {
    frames.AddUdp(RawDatagram(), port);
    frames.AddUdp(Versioned(10, kPointPacketBytes), port);
    frames.AddUdp(Versioned(10, 692), port);
    frames.AddUdp(Versioned(12, 692), port);
  }
  const FieldTable table =
      Fields(frames, {"kerul_raw.place", "kerul_raw.expert.version", "kerul_points.output_mode",
                      "kerul_points.expert.length"});
  ASSERT_EQ(table.size(), 8U);
  std::vector<std::string> taken;
  for (const std::vector<std::string>& row : table) {
    std::string as;
    for (const std::string& cell : row) as += cell.empty() ? '-' : 'x';
    taken.push_back(as);
  }
  // On its own port a point packet of another length is one, too; on the raw port it is a version
  // that the node ignores.
  EXPECT_EQ(taken, (std::vector<std::string>{"x---", "--x-", "-x--", "-x--",  //
                                             "x---", "--x-", "--xx", "-x--"}));
}

TEST_F(DatagramsOnThePorts, AreLeftToOthersWithoutTheMagic) {
  FrameList frames;
  frames.AddUdp(Bytes(692, 0), kRawPort);
  frames.AddUdp(Bytes(1, 0xEE), kRawPort);
  frames.AddUdp(Bytes{0xEE, 0xFF, 7}, kPointPort);
  frames.AddUdp(Bytes{0xFF, 0xEE, 7, 11}, kRawPort);
  frames.AddUdp(Bytes{0xEE, 0xFE, 7, 10}, kPointPort);
  const FieldTable table = Fields(frames, {"frame.protocols", "_ws.expert.message"});
  ASSERT_EQ(table.size(), 5U);
  for (const std::vector<std::string>& row : table) {
    EXPECT_EQ(row, (std::vector<std::string>{"eth:ethertype:ip:udp:data", ""}));
  }
}

TEST_F(DatagramsOnThePorts, AreTakenWhereThePreferencesSay) {
  FrameList frames;
  for (const std::uint16_t port : {kRawPort, std::uint16_t{4000}, std::uint16_t{4001}}) {
    frames.AddUdp(RawDatagram(), port);
  }
  const std::vector<std::string> fields{"kerul_raw.frame_id"};
  using Column = FieldTable;
  EXPECT_EQ(Fields(frames, fields), (Column{{"3"}, {""}, {""}}));
  EXPECT_EQ(Fields(fields, {"-o", "kerul_raw.ports:4000"}), (Column{{""}, {"3"}, {""}}));
  EXPECT_EQ(Fields(fields, {"-o", "kerul_raw.ports:4000-4001"}), (Column{{""}, {"3"}, {"3"}}));
  EXPECT_EQ(Fields(fields, {"-o", "kerul_raw.ports:"}), (Column{{""}, {""}, {""}}));
}

TEST_F(DatagramsOnThePorts, AreToldWhenTheCaptureHoldsOnlyTheirBeginning) {
  FrameList frames;
  const Bytes frame = UdpFrame(RawDatagram(), kRawPort);
  frames.Add(frame, 42 + 100);
  frames.Add(frame);
  const FieldTable table = Fields(frames, {"kerul_raw.expert.cut", "kerul_raw.expert.length",
                                           "kerul_raw.pixel_id", "_ws.expert.message"});
  ASSERT_EQ(table.size(), 2U);
  EXPECT_NE(table[0][0], "");
  EXPECT_EQ(table[0][1], "");
  EXPECT_EQ(Split(table[0][2], ',').size(), 1U);
  EXPECT_EQ(table[0][3], "100 of 692 bytes captured");
  EXPECT_EQ(table[1][0] + table[1][1] + table[1][3], "");
}

// Without a receiver the host answers each packet with its beginning: neither short nor repeated.
TEST_F(DatagramsOnThePorts, AreNotCountedWhereAnErrorMessageQuotesThem) {
  FrameList frames;
  const Bytes frame = UdpFrame(RawDatagram(), kRawPort);
  frames.Add(frame);
  frames.Add(PortUnreachableFrame(frame, frame.size() - 14));
  frames.Add(PortUnreachableFrame(frame, 528));
  const FieldTable table =
      Fields(frames, {"kerul_raw.ch_num", "kerul_raw.repeated", "kerul_raw.expert.length"});
  ASSERT_EQ(table.size(), 3U);
  for (const std::vector<std::string>& row : table) {
    EXPECT_EQ(row, (std::vector<std::string>{"9", "", ""}));
  }
}

TEST_F(DatagramsOnThePorts, ThatAreShortAreShownUpToTheirEnd) {
  FrameList frames;
  const Bytes whole = RawDatagram();
  for (std::size_t bytes = 4; bytes < 692; ++bytes) {
    frames.AddUdp(std::span(whole).first(bytes), kRawPort);
  }
  for (std::size_t bytes = 4; bytes < kPointPacketBytes; ++bytes) {
    frames.AddUdp(Versioned(10, bytes), kPointPort);
  }
  frames.Write(CapturePath());
  EXPECT_EQ(Count("kerul_raw.expert.length"), 692U - 4);
  EXPECT_EQ(Count("kerul_points.expert.length"), kPointPacketBytes - 4);
  EXPECT_EQ(Count("_ws.malformed || _ws.lua.error"), 0U);
  // The last block ends at byte 668, the place needs bytes 671 to 675.
  EXPECT_EQ(Count("count(kerul_raw.pixel_id) == 9"), 692U - 668);
  EXPECT_EQ(Count("kerul_raw.place"), 692U - 676);
}

// Random bytes, of which most begin like the sensor's; of random length, or cut in the capture.
TEST_F(DatagramsOnThePorts, NeverRaiseAnErrorWhateverTheyHold) {
  constexpr int kDatagrams = 100000;
  std::mt19937 random(20260101);
  FrameList frames;
  TcpConversation conversation(40000, 9347);
  for (int i = 0; i < kDatagrams; ++i) {
    const std::size_t longest[] = {1472, 700, 260, 40};
    Bytes bytes(1 + random() % longest[random() % 4]);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random() >> 24U);
    const unsigned kind = random() % 8;
    if (kind == 7) {
      // The beginning of a register read, and what follows by chance.
      const Bytes head{0x47, 0x74, 0xFF, 0,    0, 0,    0,    12, 0,
                       0,    1,    0x23, 0x40, 2, 0xA0, 0x2C, 1,  0xFF};
      std::copy_n(head.begin(), std::min(random() % 19UL, bytes.size()), bytes.begin());
      frames.Add(
          random() % 2 == 0 ? conversation.FromClient(bytes) : conversation.FromSensor(bytes),
          random() % 8 == 0 ? 54 + random() % 64 : SIZE_MAX);
      continue;
    }
    if (kind < 6) {
      const Bytes head{0xEE, 0xFF, 7, static_cast<std::uint8_t>(10 + kind % 2)};
      std::copy_n(head.begin(), std::min(head.size(), bytes.size()), bytes.begin());
    }
    const bool whole = random() % 4 == 0;
    if (whole) bytes.resize(kind % 2 == 0 ? kPointPacketBytes : 692U, 0x5A);
    frames.Add(UdpFrame(bytes, random() % 2 == 0 ? kRawPort : kPointPort),
               random() % 8 == 0 ? 42 + random() % 692 : SIZE_MAX);
  }
  frames.Write(CapturePath());
  // Every item of every packet is made: -T fields makes the whole tree.
  int taken = 0;
  const FieldTable table = Fields({"kerul_raw.sequence", "kerul_points.sequence",
                                   "kerul_command.code", "_ws.malformed", "_ws.lua.error"});
  ASSERT_EQ(table.size(), static_cast<std::size_t>(kDatagrams));
  for (const std::vector<std::string>& row : table) {
    // Other dissectors guess at what is left to them.
    ASSERT_EQ(row[3].find("KERUL"), std::string::npos) << row[3];
    ASSERT_EQ(row[4], "");
    if (!row[0].empty() || !row[1].empty() || !row[2].empty()) ++taken;
  }
  EXPECT_GT(taken, kDatagrams / 10);
}

TEST_F(DatagramsOnThePorts, HaveEveryFieldInTheManualPage) {
  std::ifstream file(KERUL_SOURCE_DIR "/docs/man/kerul_lidar_dissector.7");
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  std::istringstream lines(Run({"-G", "fields"}));
  int fields = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::vector<std::string> cells = Split(line, '\t');
    if (cells[0] != "F" || !cells[2].starts_with("kerul_")) continue;
    ++fields;
    EXPECT_NE(page.find("\n.It Li " + cells[2] + "\n"), std::string::npos) << cells[2];
  }
  EXPECT_GT(fields, 100);
}

}  // namespace
}  // namespace kerul::lidar::testing
