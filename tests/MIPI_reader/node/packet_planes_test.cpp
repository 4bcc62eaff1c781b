// A packet that stays in planes up to the frame, against one that becomes records first.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "support/kernel_forms.h"
#include "support/node_fixture.h"
#include "support/point_compare.h"
#include "support/random_records.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {
namespace {

constexpr int kMaxPixelId = 431;

class PacketInPlanes : public NodeFixture, public ::testing::WithParamInterface<InstructionSet> {
 protected:
  // What the packet's records hold as records of their own; of several for one place the last.
  std::map<std::pair<int, int>, LidarPoint> ExpectedRecords(const UdpPacket& packet) {
    std::vector<LidarPoint> points;
    int frame_id = 0;
    const ForcedForm scalar(InstructionSet::kScalar);
    Access().parser().ParsePacket(packet, points, frame_id, LidarPoint::echo_num);
    Access().CalibratePoints(points);
    std::map<std::pair<int, int>, LidarPoint> expected;
    for (const LidarPoint& point : points) expected[{point.row, point.col}] = point;
    return expected;
  }

  // Counts the records that were compared.
  void ExpectInFrame(const UdpPacket& packet) {
    for (const auto& [place, expected] : ExpectedRecords(packet)) {
      const auto [row, col] = place;
      if (row >= 216 || col >= 288) continue;
      const LidarPoint& got =
          Access().frame().points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      ASSERT_EQ(PointDifference(got, expected), "") << "row " << row << " column " << col;
      ++compared_;
    }
  }

  void FillFrameWithAnything(RandomRecords& random) {
    for (int row = 0; row < 6; ++row) {
      for (LidarPoint& point : Access().frame().points[static_cast<std::size_t>(row)]) {
        point = random.WildPoint();
      }
    }
  }

  int compared_ = 0;
  ForcedForm held_{GetParam()};
};
RUN_IN_EVERY_FORM(PacketInPlanes);

// A packet of the first miniflash row whose other fields are random.
UdpPacket PacketOfFirstRow(RandomRecords& random) {
  return random.RawPacketAt(random.Below(kPacketsPerMrow), 0);
}

void SetPixelId(UdpPacket& packet, int block, int id) {
  std::uint8_t* bytes = packet.buffer + 20 + 72 * block;
  bytes[4] = static_cast<std::uint8_t>(id >> 4);
  bytes[5] = static_cast<std::uint8_t>((bytes[5] & 0x0F) | (id & 0x0F) << 4);
}

TEST_P(PacketInPlanes, LeavesWholeRecordsWhateverTheFrameHeld) {
  for (const std::uint16_t echoes : {std::uint16_t{1}, std::uint16_t{2}}) {
    DefaultConfig config = TestConfig();
    config.echo_num = echoes;
    StartNode(config);
    RandomRecords random(echoes);
    for (int i = 0; i < 150; ++i) {
      if (i % 50 == 0) FillFrameWithAnything(random);
      const UdpPacket packet = PacketOfFirstRow(random);
      Play({packet});
      ASSERT_NO_FATAL_FAILURE(ExpectInFrame(packet));
    }
  }
  EXPECT_EQ(compared_, 2 * 150 * 9);
}

TEST_P(PacketInPlanes, OfPixelsWithOnePlaceTheLastStays) {
  StartNode(TestConfig());
  RandomRecords random(3);
  int doubled = 0;
  for (int i = 0; i < 150; ++i) {
    UdpPacket packet = PacketOfFirstRow(random);
    const int first_id = random.Below(kMaxPixelId - 8);
    for (int block = 0; block < 9; ++block) SetPixelId(packet, block, first_id + block);
    const int block = random.Below(9);
    SetPixelId(packet, block, first_id + random.Below(9));
    Play({packet});
    doubled += static_cast<int>(ExpectedRecords(packet).size() < 9);
    ASSERT_NO_FATAL_FAILURE(ExpectInFrame(packet));
  }
  EXPECT_GT(doubled, 100);
}

TEST_P(PacketInPlanes, APixelOutsideTheFrameIsLeftOut) {
  StartNode(TestConfig());
  RandomRecords random(4);
  for (int i = 0; i < 150; ++i) {
    UdpPacket packet = PacketOfFirstRow(random);
    packet.buffer[671] = static_cast<std::uint8_t>(random.Below(4));
    for (int block = 0; block < 9; ++block) SetPixelId(packet, block, random.Below(4096));
    SetPixelId(packet, 8, 17);  // places the packet
    Play({packet});
    ASSERT_NO_FATAL_FAILURE(ExpectInFrame(packet));
  }
  EXPECT_GT(compared_, 150);
  EXPECT_LT(compared_, 150 * 9);
}

}  // namespace
}  // namespace kerul::lidar::testing
