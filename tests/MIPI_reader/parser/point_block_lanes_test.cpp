// Every form of a block's points in the default output mode against the encoding point by point.
#include "MIPI_reader/parser/point_block_lanes.h"

#include <gtest/gtest.h>

#include <bit>
#include <iterator>
#include <limits>
#include <random>
#include <vector>

#include "MIPI_reader/parser/point_packet_encoder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

constexpr int kRows = 12;
constexpr int kCols = 288;
constexpr std::uint8_t kUntouched = 0xA5;

float RandomFloat(std::mt19937& random, float from, float to) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  constexpr float kOdd[] = {
      0.0F,   -0.0F, -1.0F,         kInf,   -kInf,     std::numeric_limits<float>::quiet_NaN(),
      0.05F,  40.0F, 0.06F,         1.0F,   255.0F,    255.5F,
      256.0F, -3.0F, -5.5F,         511.0F, 512.0F,    1e10F,
      -1e10F, 3e38F, 2147483648.0F, 1e-42F, 39.999996F};
  if (std::bernoulli_distribution(0.2)(random)) {
    return kOdd[std::uniform_int_distribution<std::size_t>(0, std::size(kOdd) - 1)(random)];
  }
  return std::uniform_real_distribution<float>(from, to)(random);
}

FrameRows RandomRows(std::mt19937& random) {
  FrameRows rows(kRows, std::vector<LidarPoint>(kCols));
  for (std::vector<LidarPoint>& row : rows) {
    for (LidarPoint& point : row) {
      point.shot_ratio = RandomFloat(random, 0.0F, 8.0F);
      for (LidarEcho& echo : point.echoes) {
        echo.dist_proc = RandomFloat(random, 0.0F, 45.0F);
        echo.refl_proc = RandomFloat(random, 0.0F, 300.0F);
        echo.cogh = RandomFloat(random, -20.0F, 600.0F);
        echo.ground = std::bernoulli_distribution(0.5)(random);
      }
    }
  }
  return rows;
}

class PointBlockLanes : public FormsTest {
 protected:
  static std::vector<std::uint8_t> Packet(const FrameRows& rows, int index, int echo) {
    std::vector<std::uint8_t> packet(kMaxDatagramBytes, kUntouched);
    WritePoints(rows, AngleCalibGrid{}, index, echo, 0, packet.data());
    return packet;
  }

  // Counts the packets that were compared.
  void ExpectLikeScalar(const FrameRows& rows, int index, int echo) {
    const std::vector<std::uint8_t> packet = Packet(rows, index, echo);
    const ForcedForm scalar(InstructionSet::kScalar);
    EXPECT_EQ(packet, Packet(rows, index, echo)) << "block " << index << " echo " << echo;
    ++compared_;
  }

  int compared_ = 0;
};
RUN_IN_EVERY_VECTOR_FORM(PointBlockLanes);

TEST_P(PointBlockLanes, WriteTheScalarBytesAndNoOthers) {
  std::mt19937 random(1);
  for (int round = 0; round < 10; ++round) {
    const FrameRows rows = RandomRows(random);
    for (int index = 0; index < kRows / 6 * 48; ++index) ExpectLikeScalar(rows, index, index % 2);
  }
  EXPECT_GE(compared_, 10 * 96);
}

TEST_P(PointBlockLanes, WriteTheScalarBytesOfBlocksThatLeaveTheRows) {
  std::mt19937 random(2);
  FrameRows rows = RandomRows(random);
  rows.resize(9);
  for (std::vector<LidarPoint>& row : rows) row.resize(100);
  rows[3].resize(20);
  for (const int index : {-97, -49, -48, -1, 0, 2, 3, 15, 16, 17, 47, 48, 49, 64, 95, 96, 5000}) {
    ExpectLikeScalar(rows, index, 0);
  }
  EXPECT_GE(compared_, 17);
}

// The vector forms multiply where the scalar form divides: every float of the published span, its
// limits and some thousands beyond them.
TEST(PointBlockDistance, EveryPublishedRangeComesOutAsByDivision) {
  using V = Lanes<4>;
  std::uint32_t wrong = 0;
  std::uint32_t compared = 0;
  const std::uint32_t end = std::bit_cast<std::uint32_t>(40.0F) + 4096;
  for (std::uint32_t bits = std::bit_cast<std::uint32_t>(0.05F) - 4096; bits < end; bits += 4) {
    V::Float range;
    for (std::uint32_t lane = 0; lane < 4; ++lane) {
      range[lane] = std::bit_cast<float>(bits + lane);
    }
    const V::Int units = PointBlockKernel<4>::EncodeDistance(range);
    for (int lane = 0; lane < 4; ++lane) {
      wrong += units[lane] != EncodeDistance(range[lane], 0);
      ++compared;
    }
  }
  EXPECT_EQ(wrong, 0U);
  EXPECT_GT(compared, 80'000'000U);
}

}  // namespace
}  // namespace kerul::lidar
