// The bloom pass row by row against the scalar form, and the sums of one row by hand.
#include "MIPI_reader/node/bloom/bloom_row_sums.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "bloom_fixture.h"
#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

using bloom_test::FillAtRandom;
using bloom_test::PlainCalib;
using testing::PointDifference;

class BloomRows : public FormsTest {
 protected:
  float Between(float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random_);
  }

  BloomSuppressCalib RandomCalib() {
    BloomSuppressCalib calib = PlainCalib();
    calib.pattern_enabled = random_() % 4 != 0;
    calib.dist_neighbor_enabled = random_() % 2 == 0;
    calib.dist_pattern_enabled = random_() % 2 == 0;
    calib.pattern_gain = -2.0F;
    calib.pattern_offset = 2.4F;
    calib.dist_gate_m = Between(0.1F, 3.0F);
    calib.source_min_dist_m = random_() % 2 == 0 ? 0.0F : 2.0F;
    for (auto* psf :
         {&calib.psf_same_block, &calib.psf_adjacent_block, &calib.psf_diagonal_block}) {
      for (float& weight : *psf) weight = Between(-0.05F, 0.3F);
    }
    for (auto& row : calib.power_template) {
      for (float& power : row) power = Between(-1.0F, 4.0F);
    }
    return calib;
  }

  // Odd values among echoes near one range, so that most have sources, marks and samples.
  void Fill(LidarFrame& frame) {
    FillAtRandom(frame, random_);
    for (std::vector<LidarPoint>& row : frame.points) {
      for (LidarPoint& point : row) {
        for (LidarEcho& echo : point.echoes) {
          if (random_() % 4 == 0) continue;
          echo.dist_raw = echo.dist_proc = Between(5.0F, 9.0F);
          echo.power = Between(0.0F, 50.0F);
          echo.refl_proc = Between(0.0F, 255.0F);
        }
      }
    }
  }

  std::mt19937 random_{71};
};

TEST_P(BloomRows, EveryEchoComesOutAsWithTheScalarForm) {
  int changed = 0;
  for (int i = 0; i < 60; ++i) {
    LidarFrame frame(18 + static_cast<int>(random_() % 6), 12 + static_cast<int>(random_() % 20),
                     1 + static_cast<int>(random_() % 2));
    Fill(frame);
    const LidarFrame before = frame;
    LidarFrame expected = frame;
    const BloomSuppressCalib calib = RandomCalib();
    for (int m_row = 0; m_row < 3; ++m_row) {
      SuppressBlooming(frame, m_row, calib, true, kNoTrace);
      const ForcedForm scalar(InstructionSet::kScalar);
      SuppressBlooming(expected, m_row, calib, true, kNoTrace);
    }
    for (std::size_t r = 0; r < frame.points.size(); ++r) {
      for (std::size_t c = 0; c < frame.points[r].size(); ++c) {
        ASSERT_EQ(PointDifference(frame.points[r][c], expected.points[r][c]), "") << r << ' ' << c;
        changed += PointDifference(frame.points[r][c], before.points[r][c]).empty() ? 0 : 1;
      }
    }
  }
  EXPECT_GT(changed, 3000);
}

RUN_IN_EVERY_VECTOR_FORM(BloomRows);

// Both functions, where the processor has them.
class RowSumsByHand : public ::testing::TestWithParam<bloom::RowSumsForm> {};

TEST_P(RowSumsByHand, SourcesAtTheRangeAddUpInTheirOrder) {
  BloomWeights weights;
  // Rows 0 and 2 apart; the columns from source to echo count from -11 on.
  for (int i = 0; i < 23; ++i) {
    weights.at[0][i] = static_cast<float>(i);
    weights.at[2][i] = static_cast<float>(100 + i);
  }
  const BloomSource sources[] = {{7, 8, 10.0F, 1.0F, &weights},   // column 8: at the third lane
                                 {9, 6, 10.25F, 2.0F, &weights},  // two rows below
                                 {5, 17, 10.5F, 4.0F, &weights}};
  bloom::RowJob job{};
  job.row = 7;
  job.first_col = 6;
  job.sources = sources;
  job.source_count = 3;
  job.dist_gate = 0.5F;
  const float dist[] = {10.0F, 10.25F, 10.75F, 9.5F, 20.0F, 10.5F, 0.0F, 0.0F};
  std::copy(std::begin(dist), std::end(dist), job.dist);
  bloom::RowSums sums;
  GetParam()(job, sums);
  // Lane 0: source 1 lies 2 columns to the right (entry 9), source 2 in its column (entry 11).
  // Source 3 is half a metre off, which is the gate itself.
  EXPECT_EQ(sums.spill[0], 9.0F + 2.0F * 111.0F);
  // Lane 1: all three; source 3 lies ten columns to the right (entry 1).
  EXPECT_EQ(sums.spill[1], 10.0F + 2.0F * 112.0F + 4.0F * 101.0F);
  // Lane 2: source 2 is at the gate. Source 3 lies nine columns to the right (entry 2).
  EXPECT_EQ(sums.spill[2], 4.0F * 102.0F);
  // Lane 3: source 1 is at the gate.
  EXPECT_EQ(sums.spill[3], 0.0F);
  EXPECT_EQ(sums.spill[4], 0.0F);
  // Lane 5, column 11: source 1 at the gate, sources 2 (entry 16) and 3 (entry 5).
  EXPECT_EQ(sums.spill[5], 2.0F * 116.0F + 4.0F * 105.0F);
  EXPECT_EQ(sums.counted & 0x3FU, 0b100111U);
}

TEST_P(RowSumsByHand, SamplesOfTheWindowAtTheEchosRangeAddUp) {
  BloomSuppressCalib calib = PlainCalib();
  for (int r = 0; r < kTemplateSide; ++r) {
    for (int c = 0; c < kTemplateSide; ++c) {
      calib.power_template[r][c] = static_cast<float>(10 * r + c);
    }
  }
  const bloom::BlockTemplate pattern(calib.power_template);
  bloom::BlockWindow window;
  for (auto& line : window.dist) std::fill(std::begin(line), std::end(line), std::nanf(""));
  for (auto& line : window.power) std::fill(std::begin(line), std::end(line), 0.0F);
  // The row begins at line 3 of the window: its own line is 5, which is row 3 of the block.
  const auto put = [&](int line, int col, float dist, float power) {
    window.dist[line][col] = dist;
    window.power[line][col] = power;
  };
  put(5, 2, 10.0F, 3.0F);   // lane 0 itself: template row 3, column 0
  put(3, 0, 10.4F, 2.0F);   // two rows up, two columns left: row 1, column 4
  put(7, 4, 9.6F, 5.0F);    // two rows down, two columns right: row 5, column 2
  put(2, 2, 10.0F, 90.0F);  // above the window of this row
  put(5, 5, 10.0F, 90.0F);  // right of that of lane 0
  put(4, 2, 10.5F, 90.0F);  // at the gate itself
  bloom::RowJob job{};
  job.window_row = 3;
  job.dist_gate = 0.5F;
  job.window = &window;
  job.pattern = &pattern;
  std::fill(std::begin(job.dist), std::end(job.dist), 10.0F);
  bloom::RowSums sums;
  GetParam()(job, sums);
  EXPECT_EQ(sums.n[0], 3.0F);
  EXPECT_EQ(sums.s[0], 10.0F);
  EXPECT_EQ(sums.t[0], 14.0F + 30.0F + 52.0F);
  EXPECT_EQ(sums.ss[0], 4.0F + 9.0F + 25.0F);
  EXPECT_EQ(sums.tt[0], 196.0F + 900.0F + 2704.0F);
  EXPECT_EQ(sums.st[0], 28.0F + 90.0F + 260.0F);
  EXPECT_EQ(sums.n[5], 1.0F);  // only column 5 is left within its reach
  EXPECT_EQ(sums.counted & 0x3FU, 0U);
}

std::vector<bloom::RowSumsForm> Forms() {
  std::vector<bloom::RowSumsForm> forms = {bloom::SumRowPlain};
  if (IsSupported(InstructionSet::kAvx2)) forms.push_back(bloom::SumRowAvx2);
  return forms;
}
INSTANTIATE_TEST_SUITE_P(Forms, RowSumsByHand, ::testing::ValuesIn(Forms()),
                         [](const auto& form) { return form.index == 0 ? "plain" : "avx2"; });

}  // namespace
}  // namespace kerul::lidar
