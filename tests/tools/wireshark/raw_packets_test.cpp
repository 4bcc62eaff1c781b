// Raw packets as tshark shows them.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "sensor_simulator/stream_runner.h"
#include "support/raw_packet_builder.h"
#include "tools/wireshark/tshark_test_base.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::uint16_t kRawPort = 2368;

class RawPackets : public TsharkTest {};

Bytes Datagram(const UdpPacket& packet) { return {packet.buffer, packet.buffer + kRawPacketBytes}; }

// The packet of the worked example in docs/formats.md: place 435, pixels 27 to 35.
Bytes ExamplePacket() {
  Bytes packet(kRawPacketBytes, 0);
  const Bytes head{0xEE, 0xFF, 7, 11};
  std::copy(head.begin(), head.end(), packet.begin());
  packet[12] = 9;
  for (int block = 0; block < 9; ++block) {
    RawPixel pixel;
    pixel.samples[1] = 100;
    pixel.SetPixelId(27 + block);
    pixel.SetNoise(40);
    for (std::uint16_t i = 0; i < 17; ++i) {
      pixel.samples[10U + i] = static_cast<std::uint16_t>(200 + i);
      pixel.samples[29U + i] = static_cast<std::uint16_t>(4095 - i);
    }
    PackBlock(pixel.samples, &packet[20U + 72U * static_cast<unsigned>(block)]);
  }
  packet[671] = 1;
  packet[673] = 2;
  packet[674] = 3;
  return packet;
}

std::string NineTimes(const std::string& text) {
  std::string all = text;
  for (int i = 1; i < 9; ++i) all += "," + text;
  return all;
}

TEST_F(RawPackets, ShowTheWorkedExampleOfTheDocument) {
  FrameList frames;
  frames.AddUdp(ExamplePacket(), kRawPort);
  const FieldTable table =
      Fields(frames, {"kerul_raw.place", "kerul_raw.pixel_id", "kerul_raw.row", "kerul_raw.col",
                      "kerul_raw.noise", "kerul_raw.echo0.peak_addr", "kerul_raw.echo1.peak_addr",
                      "kerul_raw.echo0.samples", "kerul_raw.echo1.samples"});
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table[0][0], "435");
  EXPECT_EQ(table[0][1], "27,28,29,30,31,32,33,34,35");
  // Ids 27 to 35 all have id / 12 = 2: row 2 of the 3 x 3 block, and 24 columns from one to the
  // next.
  EXPECT_EQ(table[0][2], NineTimes("14"));
  EXPECT_EQ(table[0][3], "78,102,126,150,174,198,222,246,270");
  EXPECT_EQ(table[0][4], NineTimes("40"));
  EXPECT_EQ(table[0][5], NineTimes("100"));
  EXPECT_EQ(table[0][6], NineTimes("2000"));
  EXPECT_EQ(table[0][7],
            NineTimes("200 201 202 203 204 205 206 207 208 209 210 211 212 213 214 215 216"));
  EXPECT_EQ(table[0][8], NineTimes("4095 4094 4093 4092 4091 4090 4089 4088 4087 4086 4085 4084 "
                                   "4083 4082 4081 4080 4079"));
}

TEST_F(RawPackets, ShowEveryWordOfTheHeader) {
  Bytes packet = ExamplePacket();
  packet[13] = 0x34;
  packet[14] = 0x12;
  packet[15] = 5;
  packet[672] = 6;
  packet[675] = 250;
  packet[676] = 0x01;
  packet[677] = 0x02;
  const Bytes tail{0x04, 0x03, 0x02, 0x81, 0xFE, 0xFF, 0xFF, 0xFF};
  std::copy(tail.begin(), tail.end(), packet.begin() + 684);
  FrameList frames;
  frames.AddUdp(packet, kRawPort);
  const FieldTable table =
      Fields(frames, {"kerul_raw.magic", "kerul_raw.version_major", "kerul_raw.version_minor",
                      "kerul_raw.ch_num", "kerul_raw.packet_type", "kerul_raw.scan_mode",
                      "kerul_raw.slot_id", "kerul_raw.mipi_packet_id", "kerul_raw.group_id",
                      "kerul_raw.subpkt_id", "kerul_raw.frame_id", "kerul_raw.frame_duration",
                      "kerul_raw.timestamp", "kerul_raw.sequence"});
  const std::vector<std::string> expected{"ee ff", "7",   "11",         "9",         "4660",
                                          "5",     "1",   "6",          "2",         "3",
                                          "250",   "513", "2164392708", "4294967294"};
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table[0], expected);
}

// Words that share samples: each bit set that does not belong to them, then those that do.
TEST_F(RawPackets, TakeOnlyTheirOwnBitsOfThePixelWords) {
  FrameList frames;
  for (const bool own : {false, true}) {
    RawPixel pixel;
    pixel.samples[4] = own ? 0x00F : 0xFF0;
    pixel.samples[6] = own ? 0x3FF : 0xC00;
    pixel.samples[8] = own ? 0x7FF : 0x800;
    pixel.samples[5] = pixel.samples[7] = own ? 0xFFF : 0;
    frames.AddUdp(Datagram(MakeRawPacket(1, 0, pixel)), kRawPort);
  }
  const FieldTable table =
      Fields(frames, {"kerul_raw.noise", "kerul_raw.word22", "kerul_raw.word11"});
  ASSERT_EQ(table.size(), 2U);
  EXPECT_EQ(table[0], (std::vector<std::string>{NineTimes("0"), NineTimes("0"), NineTimes("0")}));
  EXPECT_EQ(table[1], (std::vector<std::string>{NineTimes("65535"), NineTimes("4194303"),
                                                NineTimes("2047")}));
}

TEST_F(RawPackets, TellPlacesAndPixelsOutsideTheFrame) {
  FrameList frames;
  frames.AddUdp(Datagram(MakeRawPacket(1, 6911)), kRawPort);
  Bytes beyond = Datagram(MakeRawPacket(1, 0));
  beyond[673] = 36;  // the first miniflash row below the frame
  frames.AddUdp(beyond, kRawPort);
  Bytes beside = Datagram(MakeRawPacket(1, 1));  // pixels 9 to 17
  beside[671] = 8;                               // 8 * 6 columns further than slot 0
  frames.AddUdp(beside, kRawPort);
  const FieldTable table =
      Fields(frames, {"kerul_raw.place", "kerul_raw.expert.frame_end", "kerul_raw.expert.place",
                      "kerul_raw.expert.pixel", "_ws.expert.message"});
  ASSERT_EQ(table.size(), 3U);
  EXPECT_EQ(table[0][0], "6911");
  EXPECT_NE(table[0][1], "");
  EXPECT_EQ(table[0][2] + table[0][3], "");
  EXPECT_EQ(table[1][0], "6912");
  EXPECT_NE(table[1][2], "");
  EXPECT_EQ(Split(table[1][3], ',').size(), 9U);
  EXPECT_NE(table[1][4].find("Pixel 0 at row 216, column 0 is outside"), std::string::npos);
  // Place 8 * 48 + 1 is another packet's. Pixel 9 is at column 48 + 9 * 24 = 264, pixels 10 and
  // 11 at 288 and 312; with 12 the next dozen begins on the left.
  EXPECT_EQ(table[2][0], "385");
  EXPECT_EQ(table[2][2], "");
  EXPECT_EQ(Split(table[2][3], ',').size(), 2U);
  EXPECT_NE(table[2][4].find("Pixel 10 at row 0, column 288 is outside"), std::string::npos);
}

TEST_F(RawPackets, TellAnotherNumberOfPixelBlocks) {
  FrameList frames;
  for (const unsigned ch_num : {8U, 9U, 10U}) {
    Bytes packet = ExamplePacket();
    packet[12] = static_cast<std::uint8_t>(ch_num);
    frames.AddUdp(packet, kRawPort);
  }
  frames.Write(CapturePath());
  EXPECT_EQ(Count("kerul_raw.expert.ch_num"), 2U);
  EXPECT_EQ(Count("kerul_raw.expert.ch_num && kerul_raw.ch_num == 9"), 0U);
}

TEST_F(RawPackets, OfThreeFramesHaveEachPlaceAndEachPixelThreeTimes) {
  simulator::StreamOptions options;
  options.frames = 3;
  options.capture_path = CapturePath();
  options.progress = false;
  std::ostringstream ignored;
  simulator::RunStream(options, std::atomic<bool>{false}, ignored);

  std::map<std::string, int> places;
  std::map<std::string, int> pixels;
  for (const std::vector<std::string>& row :
       Fields({"kerul_raw.place", "kerul_raw.row", "kerul_raw.col", "_ws.expert.severity"})) {
    ASSERT_EQ(row.size(), 4U);
    ++places[row[0]];
    const std::vector<std::string> rows = Split(row[1], ',');
    const std::vector<std::string> cols = Split(row[2], ',');
    ASSERT_EQ(rows.size(), 9U);
    ASSERT_EQ(cols.size(), 9U);
    for (std::size_t i = 0; i < 9; ++i) ++pixels[rows[i] + " " + cols[i]];
    // A sound stream gives no note except at its frames' ends.
    EXPECT_EQ(!row[3].empty(), row[0] == "6911") << row[3];
  }
  ASSERT_EQ(places.size(), 6912U);
  ASSERT_EQ(pixels.size(), 216U * 288U);
  for (int place = 0; place < 6912; ++place) ASSERT_EQ(places[std::to_string(place)], 3) << place;
  for (int row = 0; row < 216; ++row) {
    for (int col = 0; col < 288; ++col) {
      ASSERT_EQ(pixels[std::to_string(row) + " " + std::to_string(col)], 3) << row << " " << col;
    }
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
