// Where the bloom pass looks for sources, and what each of them weighs.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "bloom_frame.h"
#include "support/node_fixture.h"
#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

using testing::PointDifference;

using bloom_test::EchoAt;
using bloom_test::PlainCalib;
using bloom_test::PutEcho;
using bloom_test::PutSource;

const BloomTrace kNoTrace;

// The weight as documented: linear between entries, from the distance computed here.
float SlowWeight(const float (&psf)[kPsfEntries], int rows, int cols) {
  const float x = 2.0F * std::hypot(static_cast<float>(rows), static_cast<float>(cols));
  if (!(x > 0.0F)) return psf[0];
  if (x >= 31.0F) return psf[31];
  const int i = static_cast<int>(std::floor(x));
  const float f = x - static_cast<float>(i);
  return (1.0F - f) * psf[i] + f * psf[i + 1];
}

TEST(BloomSources, EveryOffsetHasTheWeightOfItsDistanceAndBlock) {
  BloomSuppressCalib calib = PlainCalib();
  for (int i = 0; i < kPsfEntries; ++i) {
    const auto value = static_cast<float>(i + 1);
    calib.psf_same_block[i] = 1.0F / value;
    calib.psf_adjacent_block[i] = 0.7F / value;
    calib.psf_diagonal_block[i] = 0.3F / value;
  }
  int compared = 0;
  for (int source_row = 0; source_row < 18; ++source_row) {
    for (int source_col = 0; source_col < 18; ++source_col) {
      LidarFrame frame(18, 18, 2);
      for (int row = 6; row < 12; ++row) {
        for (int col = 6; col < 12; ++col) PutEcho(frame, row, col, 10.0F, 100.0F, 1);
      }
      PutSource(frame, source_row, source_col, 10.0F, 37.0F);
      SuppressBlooming(frame, 1, calib, true, kNoTrace);
      const int blocks_apart = std::abs(source_row / 6 - 1) + std::abs(source_col / 6 - 1);
      const auto& psf = blocks_apart == 0   ? calib.psf_same_block
                        : blocks_apart == 1 ? calib.psf_adjacent_block
                                            : calib.psf_diagonal_block;
      for (int row = 6; row < 12; ++row) {
        for (int col = 6; col < 12; ++col) {
          const float spill = SlowWeight(psf, source_row - row, source_col - col) * 37.0F;
          const float expected = 40.0F * ((100.0F - spill) / 100.0F);
          ASSERT_EQ(EchoAt(frame, row, col, 1).refl_proc, expected);
          ++compared;
        }
      }
    }
  }
  EXPECT_EQ(compared, 18 * 18 * 36);
}

TEST(BloomSources, EchoesBeforeBetweenAndBehindTheSourcesAreMarkedByTheGateAlone) {
  // The differences below are exact; the gate is 0.25 m.
  const std::vector<float> source_ranges = {10.0F, 11.0F, 20.0F};
  int marked = 0;
  int left = 0;
  for (float dist = 9.5F; dist <= 20.5F; dist += 0.125F) {
    LidarFrame frame(18, 18, 2);
    for (std::size_t i = 0; i < source_ranges.size(); ++i) {
      PutSource(frame, 7, 7 + static_cast<int>(i), source_ranges[i], 1.0F);
    }
    PutEcho(frame, 9, 9, dist, 80.0F);
    SuppressBlooming(frame, 1, PlainCalib(), false, kNoTrace);
    bool expected = false;
    for (const float range : source_ranges) expected |= std::fabs(range - dist) < 0.25F;
    EXPECT_EQ(EchoAt(frame, 9, 9).highReflBlooming, expected) << dist;
    ++(expected ? marked : left);
  }
  EXPECT_GT(marked, 5);
  EXPECT_GT(left, 5);
}

TEST(BloomSources, OnlyThePossibleRowsAreSearched) {
  // Block row 1: the search begins at pixel row 0.
  for (const int row : {0, 5, 8, 17}) {
    for (const bool possible : {false, true}) {
      LidarFrame frame(18, 18, 2);
      PutSource(frame, row, 8, 10.0F, 1.0F);
      PutEcho(frame, 9, 9, 10.0F, 80.0F);
      const std::uint32_t bit = 1U << row;
      SuppressBlooming(frame, 1, PlainCalib(), true, kNoTrace, possible ? bit : ~bit);
      EXPECT_EQ(EchoAt(frame, 9, 9).highReflBlooming, possible) << row;
    }
  }
}

TEST(BloomSources, LeavingOutRowsWithoutABrightEchoChangesNothing) {
  int marked = 0;
  for (std::uint32_t seed = 0; seed < 30; ++seed) {
    std::mt19937 random(seed);
    LidarFrame all(30, 40, 2);
    for (int row = 0; row < all.height; ++row) {
      const bool bright_row = random() % 4 == 0;
      for (int col = 0; col < all.width; ++col) {
        const float dist = 10.0F + 0.1F * static_cast<float>(random() % 8);
        PutEcho(all, row, col, dist, static_cast<float>(random() % 100), 1);
        PutEcho(all, row, col, dist, static_cast<float>(random() % 100)).highRefl =
            bright_row && random() % 3 == 0;
      }
    }
    LidarFrame some = all;
    for (int m_row = 0; m_row < 5; ++m_row) {
      std::uint32_t possible = 0;
      for (int i = 0; i < kBloomRowsSeen; ++i) {
        const int row = 6 * (m_row - 1) + i;
        if (row < 0 || row >= all.height) continue;
        for (int col = 0; col < all.width; ++col) {
          if (EchoAt(all, row, col).highRefl) possible |= 1U << i;
        }
      }
      SuppressBlooming(all, m_row, PlainCalib(), true, kNoTrace);
      SuppressBlooming(some, m_row, PlainCalib(), true, kNoTrace, possible);
    }
    for (std::size_t row = 0; row < all.points.size(); ++row) {
      for (std::size_t col = 0; col < all.points[row].size(); ++col) {
        ASSERT_EQ(PointDifference(all.points[row][col], some.points[row][col]), "");
        if (all.points[row][col].echoes[0].highReflBlooming) ++marked;
      }
    }
  }
  EXPECT_GT(marked, 100);
}

class BloomSourcesOfTheNode : public testing::NodeFixture {
 protected:
  void SetUp() override {
    DefaultConfig config = testing::TestConfig();
    config.high_ref_blooming = true;
    config.calib_enable = true;
    config.neighbor_check_enable = false;
    config.shot_noise_enable = false;
    StartNode(config);
  }

  LidarFrame& Frame() { return Access().frame(); }

  // Copies all pixels of rows 0 to 17 as packets do. An echo at (9, 9) and, if asked for, a bright
  // one at (13, 8) share a range.
  void CopyRows(bool with_source) {
    for (int row = 0; row < 18; ++row) {
      std::vector<LidarPoint> points(static_cast<std::size_t>(Frame().width));
      for (int col = 0; col < Frame().width; ++col) {
        LidarPoint& point = points[static_cast<std::size_t>(col)];
        point.row = row;
        point.col = col;
      }
      if (row == 9) points[9].echoes[0] = Weak();
      if (row == 13 && with_source) points[8].echoes[0] = Bright();
      Access().CopyIntoFrame(points);
    }
  }
  static LidarEcho Weak() {
    LidarFrame frame(1, 1, 2);
    return PutEcho(frame, 0, 0, 10.0F, 80.0F);
  }
  static LidarEcho Bright() {
    LidarFrame frame(1, 1, 2);
    return PutSource(frame, 0, 0, 10.0F, 80.0F);
  }
  bool MarkedAfterRow1() {
    Access().ProcessMiniflashRow(1);
    return EchoAt(Frame(), 9, 9).highReflBlooming;
  }
};

TEST_F(BloomSourcesOfTheNode, ABrightPixelOfAPacketIsFound) {
  Access().ResetFrame(1);
  CopyRows(true);
  EXPECT_TRUE(MarkedAfterRow1());
}

TEST_F(BloomSourcesOfTheNode, ABrightPixelOfTheFrameBeforeIsNot) {
  Access().ResetFrame(1);
  CopyRows(true);
  Access().ResetFrame(2);
  CopyRows(false);
  EXPECT_FALSE(MarkedAfterRow1());
}

TEST_F(BloomSourcesOfTheNode, ABrightPixelWrittenIntoAnEmptyFrameIsFound) {
  Access().ResetFrame(1);
  Access().SettleFrame();
  Frame().points[9][9].echoes[0] = Weak();
  Frame().points[13][8].echoes[0] = Bright();
  EXPECT_TRUE(MarkedAfterRow1());
}

TEST_F(BloomSourcesOfTheNode, ABrightPixelWrittenIntoAFrameWithFewPacketsIsFound) {
  Access().ResetFrame(1);
  LidarPoint point;
  point.row = 13;
  point.col = 20;
  Access().CopyIntoFrame({point});
  Access().SettleFrame();
  Frame().points[9][9].echoes[0] = Weak();
  Frame().points[13][8].echoes[0] = Bright();
  EXPECT_TRUE(MarkedAfterRow1());
}

}  // namespace
}  // namespace kerul::lidar
