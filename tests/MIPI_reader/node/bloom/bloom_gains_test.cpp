#include "MIPI_reader/node/bloom/bloom_gains.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "bloom_frame.h"

namespace {

using kerul::lidar::BloomSuppressCalib;
using kerul::lidar::LidarFrame;
using kerul::lidar::bloom_test::EchoAt;
using kerul::lidar::bloom_test::PlainCalib;
using kerul::lidar::bloom_test::PutEcho;
using kerul::lidar::bloom_test::PutSource;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

class BloomSpreadGain : public testing::Test {
 protected:
  // Fills the block at (6, 6) in scan order.
  float GainOf(const std::vector<float>& ranges, bool debug = false) {
    int i = 0;
    for (const float range : ranges) {
      PutEcho(frame_, 6 + i / 6, 6 + i % 6, range, 1.0F, 1);
      ++i;
    }
    return Gain(debug);
  }
  float Gain(bool debug = false) {
    return BloomDistStdGain(frame_.points, 6, 6, 1, calib_, scratch_, debug);
  }
  std::string LineOf(const std::vector<float>& ranges) {
    testing::internal::CaptureStdout();
    GainOf(ranges, true);
    return testing::internal::GetCapturedStdout();
  }

  LidarFrame frame_{18, 18, 2};
  BloomSuppressCalib calib_ = PlainCalib();
  std::vector<float> scratch_{99.0F};
};

TEST_F(BloomSpreadGain, ABlockWithoutRangesIsNeutral) {
  EXPECT_EQ(GainOf({}), 1.0F);
  EXPECT_TRUE(scratch_.empty());
}

TEST_F(BloomSpreadGain, FourteenRangesLeaveTenAndAreNeutral) {
  EXPECT_EQ(GainOf(std::vector<float>(14, 5.0F)), 1.0F);
  EXPECT_EQ(scratch_.size(), 14U);
}

TEST_F(BloomSpreadGain, ThirteenAndFifteenRangesAreNotNeutral) {
  EXPECT_EQ(GainOf(std::vector<float>(13, 5.0F)), 1.5F);
  EXPECT_EQ(GainOf(std::vector<float>(15, 5.0F)), 1.5F);
}

TEST_F(BloomSpreadGain, FiveRangesLeaveOneWithoutSpread) {
  EXPECT_EQ(GainOf({1.0F, 50.0F, 3.0F, 9.0F, 200.0F}), 1.5F);
}

TEST_F(BloomSpreadGain, FourRangesAreNotTrimmed) {
  EXPECT_EQ(GainOf({7.5F, 7.5F, 7.5F, 7.5F}), 1.5F);
  // Trimmed, these would leave none.
  EXPECT_EQ(GainOf({1.0F, 3.0F, 1.0F, 3.0F}), 1.0F - 0.5555556F * (1.0F - 0.1F));
}

TEST_F(BloomSpreadGain, ASpreadOfATenthOfAMetreGivesOneByTheFirstRule) {
  // Ranges that lie exactly 0.1F off their mean.
  const float low = 0.0009765625F;
  const float high = low + 2.0F * 0.1F;
  ASSERT_EQ((low + high) / 2.0F - low, 0.1F);
  EXPECT_EQ(GainOf({low, high}), 1.5F - 5.0F * 0.1F);
  EXPECT_EQ(GainOf({low, high}), 1.0F);
}

TEST_F(BloomSpreadGain, ASpreadOfAMetreGivesAHalfByTheSecondRule) {
  const float gain = GainOf({1.0F, 3.0F});
  EXPECT_EQ(gain, 1.0F - 0.5555556F * (1.0F - 0.1F));
  EXPECT_NEAR(gain, 0.5F, 1e-6F);  // the slope is rounded
}

TEST_F(BloomSpreadGain, AWiderSpreadGivesAHalf) {
  EXPECT_EQ(GainOf({1.0F, 4.0F}), 0.5F);
  EXPECT_EQ(GainOf({3e38F, 3e38F, 3e38F}), 0.5F) << "the sum is beyond single precision";
}

TEST_F(BloomSpreadGain, ASmallSpreadIsLinear) {
  EXPECT_EQ(GainOf({4.0F, 4.125F}), 1.5F - 5.0F * 0.0625F);
}

TEST_F(BloomSpreadGain, TheTwoSmallestAndTheTwoLargestAreRemoved) {
  // 4 and 4.125 are left.
  EXPECT_EQ(GainOf({100.0F, 4.0F, 1.0F, 90.0F, 4.125F, 2.0F}), 1.5F - 5.0F * 0.0625F);
}

TEST_F(BloomSpreadGain, TheScratchHoldsTheValidRangesInScanOrder) {
  GainOf({9.0F, 1.0F, 8.0F, 2.0F, 7.0F});
  EXPECT_THAT(scratch_, ElementsAre(9.0F, 1.0F, 8.0F, 2.0F, 7.0F));
}

TEST_F(BloomSpreadGain, MarkedEchoesCountAndBrightStrongOrEmptyOnesDoNot) {
  GainOf({1.0F, 2.0F, 3.0F, kNan, kInf, -4.0F, 0.0F, 5.0F, 6.0F});
  EchoAt(frame_, 6, 6, 1).highRefl = true;
  EchoAt(frame_, 6, 7, 1).cogh = 235.0F;
  EchoAt(frame_, 6, 8, 1).highReflBlooming = true;
  EchoAt(frame_, 7, 8, 1).cogh = kNan;
  PutEcho(frame_, 6, 6, 77.0F, 1.0F, 0);   // the other slot
  PutEcho(frame_, 6, 5, 78.0F, 1.0F, 1);   // beside the block
  PutEcho(frame_, 12, 6, 79.0F, 1.0F, 1);  // below the block
  Gain();
  EXPECT_THAT(scratch_, ElementsAre(3.0F, 5.0F));
}

TEST_F(BloomSpreadGain, SumsRunOverTheSortedRanges) {
  // An independent computation: selection of the kept values, two passes in single precision.
  std::mt19937 random(7);
  int compared = 0;
  for (int n = 1; n <= 36; ++n) {
    for (int round = 0; round < 20; ++round) {
      std::vector<float> ranges;
      for (int i = 0; i < n; ++i) {
        ranges.push_back(5.0F + static_cast<float>(random() % 10000) / 7919.0F);
      }
      std::vector<float> kept = ranges;
      if (n >= 5) {
        std::vector<float> ascending;
        while (!kept.empty()) {
          std::size_t least = 0;
          for (std::size_t i = 1; i < kept.size(); ++i) {
            if (kept[i] < kept[least]) least = i;
          }
          ascending.push_back(kept[least]);
          kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(least));
        }
        kept.assign(ascending.begin() + 2, ascending.end() - 2);
      }
      float sum = 0.0F;
      for (const float range : kept) sum = sum + range;
      const float count = static_cast<float>(kept.size());
      const float mean = sum / count;
      float squares = 0.0F;
      for (const float range : kept) squares = squares + (range - mean) * (range - mean);
      const float std = std::sqrt(squares / count);
      float expected = 0.5F;
      if (std <= 1.0F) expected = 1.0F - 0.5555556F * (std - 0.1F);
      if (std <= 0.1F) expected = 1.5F - 5.0F * std;
      if (n == 14) expected = 1.0F;
      frame_.Reset();
      ASSERT_EQ(GainOf(ranges), expected) << n;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 36 * 20);
}

TEST_F(BloomSpreadGain, DebugLines) {
  EXPECT_EQ(LineOf({}), "[BloomDebug][dist_std] echo=1 valid_n=0 trimmed_n=0 gain=1\n");
  EXPECT_EQ(LineOf({1.0F, 4.0F}),
            "[BloomDebug][dist_std] echo=1 valid_n=2 trimmed_n=2 mean=2.5 std=1.5 gain=0.5\n");
  EXPECT_EQ(LineOf({1.0F, 4.0F, 2.0F, 8.0F, 9.0F}),
            "[BloomDebug][dist_std] echo=1 valid_n=5 trimmed_n=1 mean=4 std=0 gain=1.5\n");
  EXPECT_EQ(LineOf(std::vector<float>(14, 5.0F)),
            "[BloomDebug][dist_std] echo=1 valid_n=14 trimmed_n=10 gain=1\n");
}

class BloomEdgeGain : public testing::Test {
 protected:
  float Gain(int first_row = 6, int first_col = 6, bool debug = false) {
    return BloomEdgeNeighborGain(frame_.points, frame_.height, frame_.width, first_row,
                                 first_row + 6, first_col, 0, 0.25F, 9, 10, debug);
  }
  std::string Lines(int first_row = 6, int first_col = 6) {
    testing::internal::CaptureStdout();
    Gain(first_row, first_col, true);
    return testing::internal::GetCapturedStdout();
  }
  void Mark(int row, int col, float dist) {
    PutEcho(frame_, row, col, dist, 1.0F).highReflBlooming = true;
  }

  LidarFrame frame_{18, 18, 2};
};

TEST_F(BloomEdgeGain, WithoutAMarkOnTheEdgeTheGainIsOne) {
  for (int row = 5; row < 13; ++row) {
    for (int col = 5; col < 13; ++col) PutEcho(frame_, row, col, 10.0F, 1.0F);
  }
  Mark(8, 8, 10.0F);
  EXPECT_EQ(Gain(), 1.0F);
}

TEST_F(BloomEdgeGain, AnEdgeThatContinuesLowersTheGain) {
  Mark(8, 6, 10.0F);
  PutEcho(frame_, 8, 5, 10.125F, 1.0F);
  EXPECT_EQ(Gain(), 1.0F + 0.1F * -1.0F);
}

TEST_F(BloomEdgeGain, AnEdgeThatBreaksOffRaisesTheGain) {
  Mark(8, 11, 10.0F);
  PutEcho(frame_, 8, 12, 10.25F, 1.0F);  // the limit is strict
  EXPECT_EQ(Gain(), 1.0F + 0.1F * 1.0F);
}

TEST_F(BloomEdgeGain, ACornerCountsForBothOfItsEdges) {
  Mark(6, 6, 10.0F);
  PutEcho(frame_, 5, 6, 30.0F, 1.0F);
  PutEcho(frame_, 6, 5, 30.0F, 1.0F);
  EXPECT_EQ(Gain(), 1.0F + 0.1F * 2.0F);
}

TEST_F(BloomEdgeGain, BlocksAtTheFramesEdgesHaveNoNeighboursThere) {
  for (int i = 0; i < 18; ++i) {
    for (const int border : {0, 17}) {
      Mark(border, i, 10.0F);
      Mark(i, border, 10.0F);
    }
  }
  for (const int row : {0, 6, 12}) {
    for (const int col : {0, 6, 12}) EXPECT_EQ(Gain(row, col), 1.0F) << row << ' ' << col;
  }
}

TEST_F(BloomEdgeGain, CountsSaturateAtSixEitherWay) {
  for (int i = 0; i < 6; ++i) {
    Mark(6, 6 + i, 10.0F);
    Mark(11, 6 + i, 10.0F);
    PutEcho(frame_, 5, 6 + i, 30.0F, 1.0F);
    PutEcho(frame_, 12, 6 + i, 30.0F, 1.0F);
  }
  EXPECT_EQ(Gain(), 1.0F + 0.1F * 6.0F);
  EXPECT_THAT(Lines(), HasSubstr(" raw_count=12 clamp_count=6 gain=1.6\n"));
  for (int i = 0; i < 6; ++i) {
    PutEcho(frame_, 5, 6 + i, 10.0F, 1.0F);
    PutEcho(frame_, 12, 6 + i, 10.0F, 1.0F);
  }
  EXPECT_EQ(Gain(), 1.0F + 0.1F * -6.0F);
  EXPECT_THAT(Lines(), HasSubstr(" raw_count=-12 clamp_count=-6 gain=0.4\n"));
}

TEST_F(BloomEdgeGain, TheSummaryTellsTheDirectionsApart) {
  Mark(7, 6, 10.0F);
  PutEcho(frame_, 7, 5, 10.0F, 1.0F);  // left match
  Mark(8, 6, 10.0F);
  PutEcho(frame_, 8, 5, 20.0F, 1.0F);  // left mismatch
  Mark(7, 11, 10.0F);
  PutEcho(frame_, 7, 12, 10.0F, 1.0F);  // right matches
  Mark(8, 11, 10.0F);
  PutEcho(frame_, 8, 12, 10.0F, 1.0F);
  Mark(6, 8, 10.0F);
  PutEcho(frame_, 5, 8, 20.0F, 1.0F);  // up mismatch
  Mark(11, 8, 10.0F);
  PutEcho(frame_, 12, 8, 10.0F, 1.0F);  // down match, mismatches
  Mark(11, 9, 10.0F);
  PutEcho(frame_, 12, 9, 20.0F, 1.0F);
  Mark(11, 10, 10.0F);
  PutEcho(frame_, 12, 10, 20.0F, 1.0F);
  EXPECT_THAT(
      Lines(),
      EndsWith("\n[BloomDebug][edge_neighbor] echo=0 debug_pixel=(9,10) threshold=0.25 match_up=0"
               " match_down=1 match_left=1 match_right=2 mismatch_up=1 mismatch_down=2"
               " mismatch_left=1 mismatch_right=0 raw_count=0 clamp_count=0 gain=1\n"));
}

TEST_F(BloomEdgeGain, PairsAreVisitedLeftRightUpDownForEachStep) {
  const std::string lines = Lines();
  std::string expected;
  const auto pair = [&](const char* direction, int row, int col, int to_row, int to_col) {
    expected += "[BloomDebug][edge_neighbor][detail] direction=" + std::string(direction) +
                " self=(" + std::to_string(row) + "," + std::to_string(col) + ") neighbor=(" +
                std::to_string(to_row) + "," + std::to_string(to_col) +
                ") skip=self_not_blooming count=0\n";
  };
  for (int i = 0; i < 6; ++i) {
    pair("left", 6 + i, 6, 6 + i, 5);
    pair("right", 6 + i, 11, 6 + i, 12);
    pair("up", 6, 6 + i, 5, 6 + i);
    pair("down", 11, 6 + i, 12, 6 + i);
  }
  EXPECT_EQ(lines.substr(0, expected.size()), expected);
}

class BloomEdgePair : public BloomEdgeGain {
 protected:
  std::string Count(int neighbor_row, int neighbor_col, bool debug = true) {
    testing::internal::CaptureStdout();
    BloomCountEdgeNeighbor(frame_.points, frame_.height, frame_.width, 0, "up", 6, 8, neighbor_row,
                           neighbor_col, count_, 0.25F, match_, mismatch_, debug);
    return testing::internal::GetCapturedStdout();
  }
  int count_ = 5;
  int match_ = 3;
  int mismatch_ = 4;
};

TEST_F(BloomEdgePair, WithoutDebugNothingIsPrinted) {
  Mark(6, 8, 10.0F);
  PutEcho(frame_, 5, 8, 10.0F, 1.0F);
  EXPECT_EQ(Count(5, 8, false), "");
  EXPECT_EQ(count_, 4);
  EXPECT_EQ(match_, 4);
}

TEST_F(BloomEdgePair, APlaceOutsideTheFrameIsSkipped) {
  Mark(6, 8, 10.0F);
  EXPECT_EQ(Count(-1, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(-1,8)"
            " skip=out_of_range count=5\n");
  EXPECT_THAT(Count(18, 8), HasSubstr("skip=out_of_range"));
  EXPECT_THAT(Count(5, -1), HasSubstr("skip=out_of_range"));
  EXPECT_THAT(Count(5, 18), HasSubstr("skip=out_of_range"));
  EXPECT_EQ(count_, 5);
}

TEST_F(BloomEdgePair, AnUnmarkedSelfIsSkipped) {
  PutEcho(frame_, 6, 8, 10.0F, 1.0F);
  PutEcho(frame_, 5, 8, 10.0F, 1.0F);
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " skip=self_not_blooming count=5\n");
}

TEST_F(BloomEdgePair, AMarkedOrBrightNeighbourIsSkipped) {
  Mark(6, 8, 10.0F);
  Mark(5, 8, 10.0F);
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " skip=neighbor_high_or_bloom neighbor_highRefl=0 neighbor_bloom=1 count=5\n");
  EchoAt(frame_, 5, 8).highReflBlooming = false;
  EchoAt(frame_, 5, 8).highRefl = true;
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " skip=neighbor_high_or_bloom neighbor_highRefl=1 neighbor_bloom=0 count=5\n");
  EXPECT_EQ(count_, 5);
}

TEST_F(BloomEdgePair, AnEmptyOrBrokenRangeIsSkipped) {
  Mark(6, 8, 10.0F);
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " skip=invalid_dist self_dist=10 neighbor_dist=0 count=5\n");
  Mark(6, 8, kInf);
  PutEcho(frame_, 5, 8, kNan, 1.0F);
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " skip=invalid_dist self_dist=inf neighbor_dist=nan count=5\n");
  EXPECT_EQ(count_, 5);
}

TEST_F(BloomEdgePair, AMatchAndAMismatchMoveTheCountsBeforeTheyPrint) {
  Mark(6, 8, 10.0F);
  PutEcho(frame_, 5, 8, 10.125F, 1.0F);
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " self_dist=10 neighbor_dist=10.125 diff=0.125 threshold=0.25 matched=1"
            " match_count=4 mismatch_count=4 count=4\n");
  PutEcho(frame_, 5, 8, 9.75F, 1.0F);
  EXPECT_EQ(Count(5, 8),
            "[BloomDebug][edge_neighbor][detail] direction=up self=(6,8) neighbor=(5,8)"
            " self_dist=10 neighbor_dist=9.75 diff=0.25 threshold=0.25 matched=0"
            " match_count=4 mismatch_count=5 count=5\n");
}

}  // namespace
