#include "MIPI_reader/node/bloom/bloom_trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "bloom_frame.h"

namespace kerul::lidar {
namespace {

using bloom_test::EchoAt;
using bloom_test::PlainCalib;
using bloom_test::PutEcho;
using bloom_test::PutSource;

// The lines about the traced pixel.
class BloomTraceLines : public testing::Test {
 protected:
  LidarEcho& Echo(int row, int col, int slot = 0) { return EchoAt(frame_, row, col, slot); }
  std::string Lines(bool filter_enable = true, int m_row = 1) {
    testing::internal::CaptureStdout();
    SuppressBlooming(frame_, m_row, calib_, filter_enable, trace_);
    return testing::internal::GetCapturedStdout();
  }
  LidarFrame frame_{18, 18, 2};
  BloomSuppressCalib calib_ = PlainCalib();
  BloomTrace trace_{.armed = true, .row = 9, .col = 9, .echo = 0};
};

TEST_F(BloomTraceLines, AnUnarmedTraceIsSilent) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  trace_.armed = false;
  EXPECT_EQ(Lines(), "");
  EXPECT_EQ(Lines(false), "");
}

TEST_F(BloomTraceLines, ARowWithoutASourceIsSilent) {
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  EXPECT_EQ(Lines(), "");
  EXPECT_EQ(Lines(false), "");
}

TEST_F(BloomTraceLines, AMarkedAndScaledEcho) {
  PutSource(frame_, 8, 7, 20.0F, 7.0F);
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.125F, 80.0F);
  EXPECT_EQ(Lines(),
            "[BloomDebug][mark] pixel=(9,9) echo=0 raw_dist=10.125 proc_dist=10.125 raw_refl=40"
            " proc_refl=40 cogh=100 power=80 highRefl=0 threshold=235 high_ref_sources=2"
            " dist_gate_m=0.25\n"
            "[BloomDebug][mark] source=(8,7) src_dist=20 src_power=7 dist_diff=9.875 matched=0\n"
            "[BloomDebug][mark] source=(8,8) src_dist=10 src_power=40 dist_diff=0.125 matched=1\n"
            "[BloomDebug][mark] result=marked_by_source source=(8,8)\n"
            "[BloomDebug][filter_block] echo=0 m_row=1 m_col=1 dist_pattern_enabled=0"
            " dist_neighbor_enabled=0 dist_std_gain=1 edge_neighbor_gain=1\n"
            "[BloomDebug][filter][psf] source=(8,8) src_dist=10 src_power=40 dist_diff=0.125"
            " psf_w=0.5 contribution=20 filterpower_sum=20\n"
            "[BloomDebug][filter][gain] psf_sum=20 psf_coeff=1 filterpower_psf=20"
            " pattern_enabled=0 pattern_score=-1 gate_energy=1 dist_std_gain=1"
            " edge_neighbor_gain=1 final_filterpower=20\n"
            "[BloomDebug][filter][result] power=80 pr=60 ratio=0.75 action=scale_refl"
            " out_dist=10.125 out_refl=30\n");
}

TEST_F(BloomTraceLines, AnEchoThatNoSourceMarks) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 20.0F, 80.0F);
  EXPECT_EQ(Lines(),
            "[BloomDebug][mark] pixel=(9,9) echo=0 raw_dist=20 proc_dist=20 raw_refl=40"
            " proc_refl=40 cogh=100 power=80 highRefl=0 threshold=235 high_ref_sources=1"
            " dist_gate_m=0.25\n"
            "[BloomDebug][mark] source=(8,8) src_dist=10 src_power=40 dist_diff=10 matched=0\n"
            "[BloomDebug][mark] result=not_marked_no_dist_gate_source\n"
            "[BloomDebug][filter_block] echo=0 m_row=1 m_col=1 dist_pattern_enabled=0"
            " dist_neighbor_enabled=0 dist_std_gain=1 edge_neighbor_gain=1\n"
            "[BloomDebug][filter] skip=not_marked\n");
}

TEST_F(BloomTraceLines, AnEchoThatIsNoCandidate) {
  PutSource(frame_, 9, 9, 10.0F, 40.0F);
  EXPECT_EQ(Lines(),
            "[BloomDebug][mark] pixel=(9,9) echo=0 raw_dist=10 proc_dist=10 raw_refl=40"
            " proc_refl=40 cogh=100 power=40 highRefl=1 threshold=235 high_ref_sources=1"
            " dist_gate_m=0.25\n"
            "[BloomDebug][mark] skip=not_candidate\n"
            "[BloomDebug][filter_block] echo=0 m_row=1 m_col=1 dist_pattern_enabled=0"
            " dist_neighbor_enabled=0 dist_std_gain=1 edge_neighbor_gain=1\n"
            "[BloomDebug][filter] skip=not_marked\n");
}

TEST_F(BloomTraceLines, AMarkedEchoThatIsNoCandidateAnyMore) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 12.5F, 80.0F).highReflBlooming = true;
  Echo(9, 9).cogh = 235.0F;
  EXPECT_THAT(Lines(),
              testing::EndsWith("[BloomDebug][filter] skip=not_candidate_after_mark highRefl=0"
                                " cogh=235 threshold=235 dist=12.5\n"));
}

TEST_F(BloomTraceLines, AMarkedEchoWithoutASourceAtItsRange) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 12.5F, 80.0F).highReflBlooming = true;
  EXPECT_THAT(Lines(), testing::EndsWith("[BloomDebug][filter] skip=no_valid_dist_gate_source\n"));
}

TEST_F(BloomTraceLines, AnEchoErasedByItsPower) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 15.0F);
  EXPECT_THAT(Lines(), testing::EndsWith("[BloomDebug][filter][result] power=15 pr=-5"
                                         " action=zero_by_power out_dist=0 out_refl=0\n"));
}

TEST_F(BloomTraceLines, AnEchoErasedByItsReflectivity) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 40.0F).refl_proc = 1.5F;
  EXPECT_THAT(Lines(), testing::EndsWith("[BloomDebug][filter][result] power=40 pr=20 ratio=0.5"
                                         " action=zero_by_ratio_or_refl out_dist=0 out_refl=0\n"));
}

TEST_F(BloomTraceLines, AnEchoErasedByItsRatio) {
  PutSource(frame_, 8, 8, 10.0F, 38.0F);
  PutEcho(frame_, 9, 9, 10.0F, 20.0F);
  EXPECT_THAT(Lines(), testing::EndsWith("[BloomDebug][filter][result] power=20 pr=1 ratio=0.05"
                                         " action=zero_by_ratio_or_refl out_dist=0 out_refl=0\n"));
}

TEST_F(BloomTraceLines, TheFilterSwitchedOffIsToldOncePerCall) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  const std::string line =
      "[BloomDebug][filter] skip=blooming_filter_disabled pixel=(9,9) echo=0\n";
  EXPECT_THAT(Lines(false), testing::EndsWith("skip=not_candidate\n" + line));
  // The pixel lies in another row: nothing but the line itself.
  EXPECT_EQ(Lines(false, 0), line);
}

TEST_F(BloomTraceLines, OnlyTheTracedEchoIsPrinted) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  PutEcho(frame_, 9, 9, 10.0F, 60.0F, 1);
  trace_.echo = 1;
  const std::string lines = Lines();
  EXPECT_THAT(lines, testing::HasSubstr("[BloomDebug][mark] pixel=(9,9) echo=1 "));
  EXPECT_THAT(lines, testing::HasSubstr("[BloomDebug][filter][result] power=60 "));
  EXPECT_THAT(lines, testing::Not(testing::HasSubstr("echo=0")));
  EXPECT_THAT(lines, testing::Not(testing::HasSubstr("power=80")));
}

TEST_F(BloomTraceLines, TheGainsOfTheBlockPrintBeforeTheBlock) {
  PutSource(frame_, 8, 8, 10.0F, 40.0F);
  PutEcho(frame_, 9, 9, 10.0F, 80.0F);
  calib_.dist_pattern_enabled = true;
  calib_.dist_neighbor_enabled = true;
  calib_.pattern_enabled = true;
  const std::string lines = Lines();
  const std::size_t spread = lines.find("[BloomDebug][dist_std] echo=0 valid_n=1 trimmed_n=1");
  const std::size_t edge = lines.find("[BloomDebug][edge_neighbor] echo=0 debug_pixel=(9,9)");
  const std::size_t block = lines.find("[BloomDebug][filter_block]");
  const std::size_t pattern = lines.find("[BloomDebug][pattern] skip=sample_not_enough n=2");
  const std::size_t gain = lines.find("[BloomDebug][filter][gain]");
  EXPECT_NE(spread, std::string::npos);
  EXPECT_LT(spread, edge);
  EXPECT_LT(edge, block);
  EXPECT_LT(block, pattern);
  EXPECT_LT(pattern, gain);
  EXPECT_NE(gain, std::string::npos);
}

TEST_F(BloomTraceLines, ARangeThatIsNotFiniteHasTheDifferenceMinusOne) {
  // The pass itself tries no such source or echo.
  const PrintingBloomTrace trace(trace_, calib_);
  LidarEcho echo;
  echo.dist_raw = std::numeric_limits<float>::quiet_NaN();
  testing::internal::CaptureStdout();
  trace.MarkSource(echo, {.row = 8, .col = 8, .dist = 10.0F, .power = 40.0F}, false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[BloomDebug][mark] source=(8,8) src_dist=10 src_power=40 dist_diff=-1 matched=0\n");
}

}  // namespace
}  // namespace kerul::lidar
