// Point packets as tshark shows them, against the client library's reading of the same bytes.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "MIPI_reader/parser/point_packet_encoder.h"
#include "kerul_lidar/point_packet_view.h"
#include "kerul_lidar/point_payload.h"
#include "tools/wireshark/tshark_test_base.h"

namespace kerul::lidar::testing {
namespace {

constexpr std::uint16_t kPointPort = 2369;

class PointPackets : public TsharkTest {};

PointPacketHeader ExampleHeader() {
  return {.height = 216,
          .width = 288,
          .blocks_per_column = 36,
          .blocks_per_row = 48,
          .marker = 0,
          .output_mode = 0,
          .packet_index = 100,
          .frame_id = 7,
          .echo_output_code = 1,
          .time = {1700000000, 250000},
          .sequence = 101};
}

// A packet with random points.
Bytes Encode(const PointPacketHeader& header, std::uint32_t seed = 1) {
  Bytes packet(kPointPacketBytes, 0);
  WritePointPacketHeader(header, packet.data());
  std::mt19937 random(seed);
  for (std::size_t i = 20; i < 200; ++i) packet[i] = static_cast<std::uint8_t>(random() >> 24U);
  return packet;
}

TEST_F(PointPackets, ShowTheWorkedExampleOfTheDocument) {
  Bytes packet = Encode(ExampleHeader());
  const Bytes point{0xF9, 0x00, 0x50, 0x2A, 0x81};
  std::copy(point.begin(), point.end(), packet.begin() + 20);
  FrameList frames;
  frames.AddUdp(packet, kPointPort);
  const FieldTable table =
      Fields(frames,
             {"kerul_points.row", "kerul_points.col", "kerul_points.distance",
              "kerul_points.reflectivity", "kerul_points.cogh", "kerul_points.ground",
              "kerul_points.shot_ratio", "kerul_points.range_m", "kerul_points.payload"},
             {"-E", "occurrence=f"});
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table[0], (std::vector<std::string>{"12", "24", "249", "80", "6", "1", "1", "0.996",
                                                "50 2a 81"}));
}

TEST_F(PointPackets, ShowEveryWordOutsideThePoints) {
  PointPacketHeader header = ExampleHeader();
  header.marker = 2;
  header.output_mode = 12;
  header.echo_output_code = 34;
  header.sequence = 0xFFFFFFFE;
  FrameList frames;
  frames.AddUdp(Encode(header), kPointPort);
  const FieldTable table =
      Fields(frames, {"kerul_points.magic",          "kerul_points.version_major",
                      "kerul_points.version_minor",  "kerul_points.height",
                      "kerul_points.width",          "kerul_points.blocks_per_column",
                      "kerul_points.blocks_per_row", "kerul_points.marker",
                      "kerul_points.unit_mm",        "kerul_points.count",
                      "kerul_points.output_mode",    "kerul_points.tail",
                      "kerul_points.block_row",      "kerul_points.block_col",
                      "kerul_points.frame_id",       "kerul_points.fixed_210",
                      "kerul_points.return_code",    "kerul_points.fixed_212",
                      "kerul_points.seconds",        "kerul_points.microseconds",
                      "kerul_points.fixed_224",      "kerul_points.sequence",
                      "kerul_points.time",           "_ws.expert.message"});
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table[0], (std::vector<std::string>{"ee ff",
                                                "7",
                                                "10",
                                                "216",
                                                "288",
                                                "36",
                                                "48",
                                                "2",
                                                "4",
                                                "36",
                                                "12",
                                                "dd ee ff",
                                                "2",
                                                "4",
                                                "7",
                                                "0",
                                                "0x34",
                                                "100",
                                                "1700000000",
                                                "250000",
                                                "0x42",
                                                "4294967294",
                                                "Nov 14, 2023 22:13:20.250000000 UTC",
                                                ""}));
}

// One packet for each mode that is there, and some that are not.
TEST_F(PointPackets, CarryInEachModeWhatTheClientLibraryReads) {
  using namespace payload_field;
  struct Known {
    std::uint32_t bit;
    const char* field;
    double (*value)(const PointPayload&);
  };
  const std::vector<Known> known{
      {kReflectivity, "reflectivity",
       [](const PointPayload& p) -> double { return p.reflectivity; }},
      {kCogh, "cogh", [](const PointPayload& p) -> double { return p.cogh; }},
      {kShotRatio, "shot_ratio", [](const PointPayload& p) -> double { return p.shot_ratio; }},
      {kGround, "ground", [](const PointPayload& p) -> double { return p.ground; }},
      {kPixelWord, "word22", [](const PointPayload& p) -> double { return p.pixel_word; }},
      {kNoise, "noise", [](const PointPayload& p) -> double { return p.noise; }},
      {kCogw, "cogw", [](const PointPayload& p) -> double { return p.cogw; }},
      {kPeak, "peak", [](const PointPayload& p) -> double { return p.peak; }},
      {kDirection, "direction_x", [](const PointPayload& p) -> double { return p.direction[0]; }},
      {kDirection, "direction_y", [](const PointPayload& p) -> double { return p.direction[1]; }},
      {kDirection, "direction_z", [](const PointPayload& p) -> double { return p.direction[2]; }},
      {kWaveformRms, "waveform_rms_ratio",
       [](const PointPayload& p) -> double { return p.waveform_rms_ratio; }},
      {kShotTimes, "shot_times", [](const PointPayload& p) -> double { return p.shot_times; }},
      {kPeakAddr, "peak_addr", [](const PointPayload& p) -> double { return p.peak_addr; }},
      {kFlags, "cogw_flag", [](const PointPayload& p) -> double { return p.cogw_flag; }},
      {kFlags, "high_reflectivity", [](const PointPayload& p) -> double { return p.high_refl; }},
      {kFlags, "bloom", [](const PointPayload& p) -> double { return p.bloom; }},
      {kFlags, "after_pulse", [](const PointPayload& p) -> double { return p.after_pulse; }},
      {kFlags, "filled", [](const PointPayload& p) -> double { return p.filled; }},
      {kFlags, "shot_noise", [](const PointPayload& p) -> double { return p.shot_noise; }},
      {kFlags, "debug", [](const PointPayload& p) -> double { return p.debug; }},
      {kFlags, "echo_flags", [](const PointPayload& p) -> double { return p.echo_flag; }},
      {kFlags, "below_detection", [](const PointPayload& p) -> double { return p.detect_failed; }},
      {kFlags, "removed", [](const PointPayload& p) -> double { return p.shot_noise_group; }},
  };
  std::vector<Bytes> packets;
  FrameList frames;
  for (int mode = 0; mode <= 14; ++mode) {
    PointPacketHeader header = ExampleHeader();
    header.output_mode = mode;
    header.packet_index = 123 * mode;
    packets.push_back(Encode(header, static_cast<std::uint32_t>(mode)));
    frames.AddUdp(packets.back(), kPointPort);
  }
  std::vector<std::string> fields{"kerul_points.row", "kerul_points.col", "kerul_points.distance"};
  for (const Known& field : known) fields.push_back(std::string("kerul_points.") + field.field);
  const FieldTable table = Fields(frames, fields);
  ASSERT_EQ(table.size(), packets.size());

  int compared = 0;
  for (std::size_t p = 0; p < packets.size(); ++p) {
    PointPacketView view;
    ASSERT_EQ(view.Parse(packets[p].data(), packets[p].size()), PointPacketError::kNone);
    std::vector<std::vector<std::string>> cells;
    for (const std::string& cell : table[p]) cells.push_back(Split(cell, ','));
    for (int i = 0; i < 36; ++i) {
      const auto at = static_cast<std::size_t>(i);
      const PacketPoint point = view.Point(i);
      EXPECT_EQ(cells[0].at(at), std::to_string(point.row));
      EXPECT_EQ(cells[1].at(at), std::to_string(point.col));
      EXPECT_EQ(cells[2].at(at), std::to_string(point.distance));
      const PointPayload payload = DecodePointPayload(view.Mode(), point.payload);
      for (std::size_t f = 0; f < known.size(); ++f) {
        const std::vector<std::string>& values = cells[f + 3];
        if ((payload.carries & known[f].bit) == 0) {
          EXPECT_EQ(values, std::vector<std::string>{""}) << known[f].field << " in mode " << p;
          continue;
        }
        // The library keeps single precision; tshark writes six digits or more.
        EXPECT_NEAR(std::stod(values.at(at)), known[f].value(payload), 1e-5)
            << known[f].field << " in mode " << p;
        ++compared;
      }
    }
  }
  EXPECT_GT(compared, 36 * 30);
}

TEST_F(PointPackets, AreRefusedForTheReasonThatTheClientLibraryGives) {
  struct Change {
    std::size_t offset;
    std::uint8_t value;
  };
  FrameList frames;
  std::vector<std::string> expected;
  for (const Change change : {Change{205, 0}, Change{7, 1}, Change{13, 0}, Change{14, 35},
                              Change{12, 3}, Change{207, 36}, Change{208, 48}, Change{212, 1}}) {
    Bytes packet = Encode(ExampleHeader());
    packet[change.offset] = change.value;
    frames.AddUdp(packet, kPointPort);
    PointPacketView view;
    const PointPacketError error = view.Parse(packet.data(), packet.size());
    expected.push_back(error == PointPacketError::kNone
                           ? ""
                           : std::string("Readers refuse it: ") + PointPacketErrorName(error));
  }
  const FieldTable table = Fields(frames, {"_ws.expert.message"}, {"-E", "occurrence=f"});
  ASSERT_EQ(table.size(), expected.size());
  EXPECT_EQ(expected.back(), "");
  for (std::size_t i = 0; i < expected.size(); ++i) {
    // The packets all have one number, and from the second on it is told as well.
    const std::string told = i + 1 == expected.size() ? "Repeated packet" : expected[i];
    EXPECT_EQ(table[i][0], told);
  }
}

// Two frames of both echoes in order, and one block left out.
TEST_F(PointPackets, CountGapsOverTheEndOfAFrame) {
  FrameList frames;
  std::uint32_t base = 50;
  for (int frame = 0; frame < 2; ++frame) {
    for (int block = frame == 0 ? 1700 : 0; block < (frame == 0 ? 1728 : 30); ++block) {
      if (frame == 1 && block == 10) continue;
      for (const std::uint8_t marker : {std::uint8_t{1}, std::uint8_t{2}}) {
        PointPacketHeader header = ExampleHeader();
        header.marker = marker;
        header.packet_index = block;
        header.frame_id = frame;
        header.sequence = PointPacketSequence(base, block, marker);
        frames.AddUdp(Encode(header), kPointPort);
      }
    }
    base += 2 * 1728;
  }
  const FieldTable table = Fields(frames, {"kerul_points.missing", "kerul_points.block_col"},
                                  {"-Y", "kerul_points.expert.gap"});
  EXPECT_EQ(table, (FieldTable{{"2", "11"}}));
}

}  // namespace
}  // namespace kerul::lidar::testing
