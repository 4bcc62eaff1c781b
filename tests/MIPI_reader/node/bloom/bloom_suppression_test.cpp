// Which rows, blocks and echoes the bloom pass looks at and marks.
#include "MIPI_reader/node/bloom/bloom_suppression.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "bloom_fixture.h"
#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

using testing::PointDifference;

using bloom_test::EchoAt;
using bloom_test::FillAtRandom;
using bloom_test::PlainCalib;
using bloom_test::PutEcho;
using bloom_test::PutSource;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

class BloomSuppression : public BloomFixture {};

TEST_P(BloomSuppression, AnEchoAtTheRangeOfASourceIsMarkedAndDimmed) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.125F, 80.0F);
  Run();
  // 80 less 0.5 * 40 leaves three quarters.
  EXPECT_TRUE(Echo(9, 9).highReflBlooming);
  EXPECT_EQ(Echo(9, 9).refl_proc, 30.0F);
  EXPECT_EQ(Echo(9, 9).dist_proc, 10.125F);
  EXPECT_EQ(Echo(9, 9).refl_raw, 40.0F);
  EXPECT_EQ(Echo(9, 9).dist_raw, 10.125F);
  EXPECT_EQ(Echo(9, 9).power, 80.0F);
}

TEST_P(BloomSuppression, TheDistanceGateIsStrict) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.25F, 80.0F);
  PutEcho(frame_, 9, 10, 9.75F, 80.0F);
  PutEcho(frame_, 9, 11, std::nextafter(10.25F, 0.0F), 80.0F);
  Run();
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
  EXPECT_FALSE(Echo(9, 10).highReflBlooming);
  EXPECT_TRUE(Echo(9, 11).highReflBlooming);
}

TEST_P(BloomSuppression, DisabledTuningDoesNothing) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  calib_.enable = false;
  Run();
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
  EXPECT_EQ(Echo(9, 9).refl_proc, 40.0F);
}

TEST_P(BloomSuppression, ARowOutsideTheFrameIsLeftAlone) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  for (const int m_row : {-1, 3, 4, std::numeric_limits<int>::max(), -1000000000}) Run(true, m_row);
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
}

TEST_P(BloomSuppression, ARowThatTheHeightCutsIsLeftAlone) {
  LidarFrame frame(17, 12, 1);
  PutSource(frame, 14, 1, 10.0F, 40.0F);
  PutEcho(frame, 13, 2, 10.0F, 80.0F);
  PutEcho(frame, 10, 2, 10.0F, 80.0F);
  SuppressBlooming(frame, 2, calib_, true, kNoTrace);
  EXPECT_FALSE(EchoAt(frame, 13, 2).highReflBlooming);
  // The cut block is no whole block: its sources are scanned, but enter no list.
  SuppressBlooming(frame, 1, calib_, true, kNoTrace);
  EXPECT_FALSE(EchoAt(frame, 10, 2).highReflBlooming);
}

TEST_P(BloomSuppression, FramesWithoutPixelsAreLeftAlone) {
  LidarFrame no_rows(0, 0, 2);
  LidarFrame no_cols(12, 0, 2);
  SuppressBlooming(no_rows, 0, calib_, true, kNoTrace);
  SuppressBlooming(no_cols, 0, calib_, true, kNoTrace);
  EXPECT_EQ(no_cols.points.size(), 12U);
}

TEST_P(BloomSuppression, TheFirstRowHasNoBlocksAbove) {
  PutSource(frame_, 0, 0, 10.0F, 40.0F);
  PutEcho(frame_, 5, 5, 10.0F, 80.0F);
  Run(true, 0);
  EXPECT_EQ(Echo(5, 5).refl_proc, 30.0F);
}

TEST_P(BloomSuppression, TheLastRowHasNoBlocksBelow) {
  PutSource(frame_, 17, 17, 10.0F, 40.0F);
  PutEcho(frame_, 12, 12, 10.0F, 80.0F);
  Run(true, 2);
  EXPECT_EQ(Echo(12, 12).refl_proc, 30.0F);
}

TEST_P(BloomSuppression, OnlySourcesWithinEighteenRowsCount) {
  LidarFrame frame(36, 6, 1);
  PutSource(frame, 5, 0, 10.0F, 40.0F);
  PutSource(frame, 24, 0, 10.0F, 40.0F);
  PutEcho(frame, 12, 3, 10.0F, 80.0F);
  PutEcho(frame, 17, 3, 10.0F, 80.0F);
  SuppressBlooming(frame, 2, calib_, true, kNoTrace);
  EXPECT_FALSE(EchoAt(frame, 12, 3).highReflBlooming);
  EXPECT_FALSE(EchoAt(frame, 17, 3).highReflBlooming);
  PutSource(frame, 6, 0, 10.0F, 40.0F);
  SuppressBlooming(frame, 2, calib_, true, kNoTrace);
  EXPECT_TRUE(EchoAt(frame, 12, 3).highReflBlooming);
  EXPECT_TRUE(EchoAt(frame, 17, 3).highReflBlooming);
}

TEST_P(BloomSuppression, UnusableSourcesMarkNothing) {
  PutEcho(frame_, 9, 9, 2.0F, 80.0F);
  PutEcho(frame_, 9, 10, 0.125F, 80.0F);
  PutSource(frame_, 8, 6, 2.0F, 40.0F);  // not farther than source_min_dist_m
  PutSource(frame_, 8, 7, kNan, 40.0F);
  PutSource(frame_, 8, 8, kInf, 40.0F);
  PutSource(frame_, 8, 9, -2.0F, 40.0F);
  PutSource(frame_, 8, 10, 0.0F, 40.0F);
  Run();
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
  EXPECT_FALSE(Echo(9, 10).highReflBlooming);
  // Without a smallest distance the first of them counts; the range 0 still does not.
  calib_.source_min_dist_m = 0.0F;
  Run();
  EXPECT_TRUE(Echo(9, 9).highReflBlooming);
  EXPECT_FALSE(Echo(9, 10).highReflBlooming);
}

TEST_P(BloomSuppression, ABrightEchoIsNeverACandidate) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutSource(frame_, 8, 9, 10.0F, 40.0F);
  PutEcho(frame_, 8, 9, 10.0F, 80.0F, 1).highRefl = true;
  Run();
  EXPECT_FALSE(Echo(8, 8).highReflBlooming);
  EXPECT_FALSE(Echo(8, 9).highReflBlooming);
  EXPECT_FALSE(Echo(8, 9, 1).highReflBlooming);
  EXPECT_EQ(Echo(8, 9, 1).refl_proc, 40.0F);
}

TEST_P(BloomSuppression, TheSecondEchoOfASourceIsFilteredWithTheFirstTableEntry) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 8, 8, 10.0F, 80.0F, 1);
  calib_.psf_same_block[0] = 1.0F;
  Run();
  EXPECT_TRUE(Echo(8, 8, 1).highReflBlooming);
  EXPECT_EQ(Echo(8, 8, 1).refl_proc, 20.0F);
}

TEST_P(BloomSuppression, AStrongOrEmptyEchoIsNoCandidate) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 6, 10.0F, 80.0F).cogh = 235.0F;
  PutEcho(frame_, 9, 7, 10.0F, 80.0F).cogh = kNan;
  PutEcho(frame_, 9, 8, kNan, 80.0F);
  PutEcho(frame_, 9, 9, kInf, 80.0F);
  PutEcho(frame_, 9, 10, 10.0F, 80.0F).cogh = std::nextafter(235.0F, 0.0F);
  Run();
  for (const int col : {6, 7, 8, 9}) EXPECT_FALSE(Echo(9, col).highReflBlooming) << col;
  EXPECT_TRUE(Echo(9, 10).highReflBlooming);
}

TEST_P(BloomSuppression, TheSecondEchoIsComparedWithTheFirstEchoOfASource) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 50.0F, 80.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F, 1);
  Run();
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
  EXPECT_TRUE(Echo(9, 9, 1).highReflBlooming);
  EXPECT_EQ(Echo(9, 9, 1).refl_proc, 30.0F);
}

TEST_P(BloomSuppression, ABrightSecondEchoIsNoSource) {
  PutEcho(frame_, 8, 8, 10.0F, 40.0F, 1).highRefl = true;
  PutEcho(frame_, 9, 9, 10.0F, 80.0F, 1);
  Run();
  EXPECT_FALSE(Echo(9, 9, 1).highReflBlooming);
}

TEST_P(BloomSuppression, OnlyTheEchoSlotsInUseAreTreated) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F, 1);
  frame_.echo_num = 0;
  Run();
  EXPECT_FALSE(Echo(9, 9).highReflBlooming);
  frame_.echo_num = 1;
  Run();
  EXPECT_TRUE(Echo(9, 9).highReflBlooming);
  EXPECT_FALSE(Echo(9, 9, 1).highReflBlooming);
  frame_.echo_num = 7;
  Run();
  EXPECT_TRUE(Echo(9, 9, 1).highReflBlooming);
}

TEST_P(BloomSuppression, WithTheFilterOffEchoesAreMarkedAndKept) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 0.0F);
  Run(false);
  EXPECT_TRUE(Echo(9, 9).highReflBlooming);
  EXPECT_EQ(Echo(9, 9).dist_proc, 10.0F);
  EXPECT_EQ(Echo(9, 9).refl_proc, 40.0F);
}

TEST_P(BloomSuppression, ASourceTwoBlocksAwayDoesNotCount) {
  PutSource(frame_, 8, 12, 10.0F, 40.0F);
  PutEcho(frame_, 8, 5, 10.0F, 80.0F);
  PutEcho(frame_, 8, 6, 10.0F, 80.0F);
  Run();
  EXPECT_FALSE(Echo(8, 5).highReflBlooming);
  EXPECT_TRUE(Echo(8, 6).highReflBlooming);
}

TEST_P(BloomSuppression, AMarkWithoutASourceAtItsRangeChangesNothing) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 20.0F, 0.0F).highReflBlooming = true;
  Run();
  EXPECT_TRUE(Echo(9, 9).highReflBlooming) << "a mark is never cleared";
  EXPECT_EQ(Echo(9, 9).dist_proc, 20.0F);
}

TEST_P(BloomSuppression, AMarkedEchoThatIsNoCandidateAnyMoreIsKept) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 0.0F).highReflBlooming = true;
  Echo(9, 9).cogh = 300.0F;
  Run();
  EXPECT_EQ(Echo(9, 9).dist_proc, 10.0F);
}

TEST_P(BloomSuppression, ColumnsBehindTheLastWholeBlockAreNotLookedAt) {
  LidarFrame frame(6, 8, 1);
  PutSource(frame, 0, 7, 10.0F, 40.0F);
  PutEcho(frame, 0, 6, 10.0F, 80.0F);
  PutEcho(frame, 0, 5, 10.0F, 80.0F);
  SuppressBlooming(frame, 0, calib_, true, kNoTrace);
  EXPECT_FALSE(EchoAt(frame, 0, 6).highReflBlooming);
  EXPECT_FALSE(EchoAt(frame, 0, 5).highReflBlooming);
}

TEST_P(BloomSuppression, AFrameNarrowerThanABlockIsLeftAlone) {
  LidarFrame frame(6, 5, 1);
  PutSource(frame, 0, 4, 10.0F, 40.0F);
  PutEcho(frame, 0, 3, 10.0F, 80.0F);
  SuppressBlooming(frame, 0, calib_, true, kNoTrace);
  EXPECT_FALSE(EchoAt(frame, 0, 3).highReflBlooming);
}

RUN_IN_EVERY_FORM(BloomSuppression);

TEST(BloomSuppressionOnAnything, NothingIsOverrunAndTheTraceChangesNothing) {
  std::mt19937 random(20240);
  BloomSuppressCalib calib = PlainCalib();
  calib.pattern_enabled = calib.dist_neighbor_enabled = calib.dist_pattern_enabled = true;
  calib.pattern_gain = -2.0F;
  calib.pattern_offset = 2.4F;
  int marked = 0;
  for (const int height : {1, 5, 6, 13, 24}) {
    for (const int width : {1, 5, 6, 11, 31}) {
      LidarFrame plain(height, width, 1 + static_cast<int>(random() % 2));
      FillAtRandom(plain, random);
      LidarFrame traced = plain;
      const BloomTrace trace{true, height / 2, width / 2, 0};
      ::testing::internal::CaptureStdout();
      for (int m_row = -1; m_row <= height / 6 + 1; ++m_row) {
        SuppressBlooming(plain, m_row, calib, true, kNoTrace);
        SuppressBlooming(traced, m_row, calib, true, trace);
      }
      ::testing::internal::GetCapturedStdout();
      for (std::size_t r = 0; r < plain.points.size(); ++r) {
        for (std::size_t c = 0; c < plain.points[r].size(); ++c) {
          marked += plain.points[r][c].echoes[0].highReflBlooming ? 1 : 0;
          ASSERT_EQ(PointDifference(plain.points[r][c], traced.points[r][c]), "");
        }
      }
    }
  }
  EXPECT_GT(marked, 100);
}

}  // namespace
}  // namespace kerul::lidar
