// What leaves the node: published packets, doubled frames and exported files against the reference.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "MIPI_reader/node/frame_end/echo_merge.h"
#include "MIPI_reader/node/frame_end/frame_export.h"
#include "MIPI_reader/node/frame_end/frame_upsampling.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "reference/encoder.h"
#include "reference/merge.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"
#include "support/random_records.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

// --- Published packets ---

// The reference's clock is what the node wrote.
reference::WallClock ClockOf(const UdpPacket& packet) {
  const std::uint8_t* b = packet.buffer;
  reference::WallClock clock;
  for (int i = 216; i < 220; ++i) clock.seconds = clock.seconds << 8 | b[i];
  for (int i = 223; i > 219; --i) clock.microseconds = clock.microseconds << 8 | b[i];
  return clock;
}

class PointPackets : public ::testing::TestWithParam<int> {};

TEST_P(PointPackets, AreTheReferencesForEveryBlockOfARandomFrame) {
  RandomRecords random(static_cast<std::uint64_t>(61 + GetParam()));
  FormsInTurn forms;
  const LidarFrame frame =
      random.Frame(216, 288, 2, GetParam() % 2 == 0 ? FrameStyle::kWild : FrameStyle::kSalted);
  LidarParserQDV11 node;
  reference::Parser reference;
  node.angle_grid = random.AngleGrid(216, random.Chance(0.7) ? 288 : 100, 0.05);
  node.angle_grid.valid = random.Chance(0.9);
  node.udp_seq_base = static_cast<std::uint32_t>(random.Bits());
  reference.angle_grid = node.angle_grid;
  reference.udp_seq_base = node.udp_seq_base;
  UdpPacket packet{};
  UdpPacket expected{};
  int compared = 0;
  for (int index = 0; index < 1728; ++index) {
    forms.Next();
    LidarPoint::echo_num = random.Chance(0.95) ? 2 : 1;
    const reference::PacketRequest request{.echo = random.Below(2),
                                           .packet_index = index,
                                           .frame_id = random.Below(256),
                                           .output_mode = GetParam(),
                                           .echo_output_code = random.Below(150),
                                           .marker = random.Below(3)};
    const int length = node.GetPacket_7_10_FromFrame(
        frame.points, request.echo, packet, index, request.frame_id, request.output_mode,
        request.echo_output_code, static_cast<std::uint8_t>(request.marker));
    ASSERT_EQ(length,
              reference::EncodePacket(reference, frame.points, expected, request, ClockOf(packet)));
    for (int i = 0; i < kMaxDatagramBytes; ++i) {
      ASSERT_EQ(packet.buffer[i], expected.buffer[i]) << "byte " << i << " of block " << index;
    }
    ASSERT_EQ(node.udp_seq_base, reference.udp_seq_base);
    ++compared;
  }
  EXPECT_EQ(compared, 1728);
}

INSTANTIATE_TEST_SUITE_P(EveryMode, PointPackets, ::testing::Range(0, 15));

TEST(DirectionBytes, AreTheReferences) {
  RandomRecords random(60);
  const AngleCalibGrid grid = random.AngleGrid(9, 7, 0.2);
  int compared = 0;
  for (int i = 0; i < 20000; ++i, ++compared) {
    const float value = random.Chance(0.5) ? random.Uniform(-1.1F, 1.1F) : random.AnyFloat();
    ASSERT_EQ(AngleCalibGrid::EncodeComponent(value), reference::EncodeAngle(value)) << value;
    const int plane = random.Between(-1, 3);
    const int row = random.Between(-2, 10);
    const int col = random.Between(-2, 8);
    ASSERT_TRUE(SameValue(grid.At(plane, row, col), reference::AngleAt(grid, plane, row, col)));
  }
  EXPECT_EQ(compared, 20000);
}

// --- Merged windows and doubled frames ---

// Windows that mostly lie close enough together to be merged.
void PlaceWindows(RandomRecords& random, std::vector<LidarPoint>& points) {
  const int address = random.Chance(0.9) ? random.Below(1001) : random.Below(4096);
  const int reach = random.Chance(0.5) ? 4 : 20;
  for (LidarPoint& point : points) {
    for (LidarEcho& echo : point.echoes) {
      random.Window(echo.bins.data());
      if (random.Chance(0.1)) echo.bins.fill(0);
      if (random.Chance(0.02)) {
        for (std::uint16_t& bin : echo.bins) bin = static_cast<std::uint16_t>(random.Bits());
      }
      echo.peak_addr = address + random.Between(-reach, reach);
      if (random.Chance(0.05)) echo.peak_addr = static_cast<std::int32_t>(random.Bits());
    }
  }
}

TEST(Merge, WindowsAndPixelsAreTheReferences) {
  RandomRecords random(71);
  int merged = 0;
  for (int round = 0; round < 20000; ++round) {
    LidarPoint::echo_num = random.Between(1, 2);
    std::vector<LidarPoint> points(4);
    for (LidarPoint& point : points) point = random.Point(random.Chance(0.1) ? 0.3 : 0.0);
    PlaceWindows(random, points);
    std::vector<const LidarPoint*> sources;
    std::vector<const std::uint16_t*> windows;
    std::vector<int> addresses;
    const int slot = random.Below(2);
    for (const LidarPoint& point : points) {
      sources.push_back(&point);
      windows.push_back(point.echoes[slot].bins.data());
      addresses.push_back(point.echoes[slot].peak_addr);
    }

    std::uint16_t out[kWindowSamples] = {};
    const std::uint64_t picked = PickAndMergeFour(sources.data(), slot, out);
    const reference::MergedWindow four = reference::PickAndMergeFour(sources, slot);
    ASSERT_EQ(static_cast<std::int32_t>(picked & 0xFFFFFFFF), four.centre) << round;
    ASSERT_EQ(picked >> 32, four.mask) << round;
    ASSERT_EQ(std::memcmp(out, four.samples, sizeof(out)), 0) << round;

    const auto count = static_cast<std::size_t>(random.Below(5));
    sources.resize(count);
    windows.resize(count);
    addresses.resize(count);
    const int centre =
        MergeWindowsOnAxis(windows.data(), addresses.data(), static_cast<int>(count), out);
    const reference::MergedWindow some = reference::MergeHistograms(windows, addresses);
    ASSERT_EQ(centre, some.centre) << round;
    ASSERT_EQ(std::memcmp(out, some.samples, sizeof(out)), 0) << round;

    const LidarPoint point = MergePoints(sources.data(), static_cast<int>(count));
    ASSERT_EQ(PointDifference(point, reference::MergePoint(sources)), "") << round;
    merged += point.echoes[0].totsum > 0.0F ? 1 : 0;
  }
  EXPECT_GT(merged, 4000);
}

LidarFrame FrameWithWindows(RandomRecords& random) {
  LidarFrame frame = random.Frame(6 * random.Between(1, 3), 6 * random.Between(1, 5),
                                  random.Between(1, 2), random.Style());
  const int address = random.Below(980);
  for (std::vector<LidarPoint>& row : frame.points) {
    PlaceWindows(random, row);
    for (LidarPoint& point : row) {
      for (LidarEcho& echo : point.echoes) {
        if (random.Chance(0.8)) echo.peak_addr = address + random.Below(20);
      }
      if (!random.Chance(0.05)) continue;
      point.row = random.Between(-3, frame.height + 3);
      point.col = random.Between(-3, frame.width + 3);
    }
  }
  frame.frame_id = random.Byte();
  return frame;
}

TEST(Upsampling, RandomFramesAreDoubledAsByTheReference) {
  RandomRecords random(72);
  int doubled = 0;
  for (int round = 0; round < 200; ++round) {
    const LidarFrame source = FrameWithWindows(random);
    const int misfit = random.Chance(0.1) ? random.Between(-1, 1) : 0;
    LidarFrame target =
        random.Frame(2 * source.height + misfit, 2 * source.width, source.echo_num, random.Style());
    LidarFrame expected = target;
    const bool done = UpsampleFrame(source, target);
    ASSERT_EQ(done, reference::Upsample(source, expected)) << round;
    ASSERT_EQ(FrameDifference(target, expected), "") << round;
    doubled += done ? 1 : 0;
  }
  EXPECT_GT(doubled, 150);
}

// --- Exported files ---

TEST(Export, FilesHoldTheReferencesBytes) {
  RandomRecords random(73);
  const TempDir dir;
  std::size_t bytes = 0;
  for (int round = 0; round < 60; ++round) {
    const LidarFrame frame = random.Frame(random.Between(1, 40), random.Between(1, 40),
                                          random.Between(1, 2), random.Style());
    static constexpr const char* kModes[] = {"raw", "processed", "interp", ""};
    const FrameExport request{.export_dir = (dir.path() / std::to_string(round)).string(),
                              .node_name = "A_node",
                              .export_mode = kModes[random.Below(4)],
                              .frame_id = random.Below(256),
                              .sequence = random.Bits()};
    ExportFrame(frame, request);
    const auto file = std::filesystem::directory_iterator(request.export_dir)->path();
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> got{std::istreambuf_iterator<char>(stream), {}};
    ASSERT_EQ(got, reference::ExportFileBytes(frame, request.export_mode, request.frame_id,
                                              request.sequence))
        << file;
    bytes += got.size();
  }
  EXPECT_GT(bytes, 60U * 36U + 10000U);
}

}  // namespace
}  // namespace kerul::lidar::testing
