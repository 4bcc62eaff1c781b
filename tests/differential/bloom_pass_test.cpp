// The bloom pass, its two gains and its power pattern against the reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "MIPI_reader/node/bloom/bloom_gains.h"
#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "MIPI_reader/node/bloom/power_pattern.h"
#include "config/default_config.h"
#include "pass_comparison.h"
#include "reference/bloom.h"

namespace kerul::lidar::testing {
namespace {

void Fill(RandomRecords& random, float* table, int entries, float highest) {
  for (int i = 0; i < entries; ++i) table[i] = random.Salted(0.0F, highest, 0.01);
}

BloomSuppressCalib RandomCalib(RandomRecords& random) {
  const auto flip = [&] { return random.Chance(0.6); };
  BloomSuppressCalib calib = default_config::kConfig.bloom_suppress_calib;
  const float spill = random.Chance(0.5) ? 0.01F : 0.3F;
  Fill(random, calib.psf_same_block, kPsfEntries, spill);
  Fill(random, calib.psf_adjacent_block, kPsfEntries, spill);
  Fill(random, calib.psf_diagonal_block, kPsfEntries, spill);
  for (float(&row)[kTemplateSide] : calib.power_template) Fill(random, row, kTemplateSide, 50.0F);
  if (random.Chance(0.5)) return calib;
  calib.enable = !random.Chance(0.05);
  calib.psf_coeff = random.Salted(0.0F, 2.0F, 0.1);
  calib.dist_neighbor_enabled = flip();
  calib.pattern_enabled = flip();
  calib.dist_pattern_enabled = flip();
  calib.pattern_gain = random.Salted(-3.0F, 3.0F);
  calib.pattern_offset = random.Salted(-3.0F, 3.0F);
  calib.dist_gate_m = random.Salted(0.05F, 2.0F);
  calib.source_min_dist_m = random.Salted(-1.0F, 4.0F);
  calib.edge_neighbor_threshold_m = random.Salted(0.05F, 1.0F);
  calib.min_n = random.Between(-1, 26);
  calib.threshold = random.Salted(20.0F, 300.0F);
  return calib;
}

// Patches with bright pixels for the most part: nothing else has sources.
FrameStyle BrightStyle(RandomRecords& random) {
  return random.Chance(0.6) ? FrameStyle::kPatches : random.Style();
}

TEST(BloomPass, IsTheReferencesUnderEverySetting) {
  RandomRecords random(51);
  PassTally tally;
  while (tally.rows < 2000 && !::testing::Test::HasFailure()) {
    random.StartRound();
    const int width = random.Chance(0.2) ? random.Between(1, 80) : 6 * random.Between(1, 25);
    const LidarFrame before =
        random.Frame(6 * random.Between(1, 5), width, random.Between(1, 2), BrightStyle(random));
    const BloomSuppressCalib calib = RandomCalib(random);
    const bool filter = random.Chance(0.7);
    ComparePass(
        random, before,
        [&](LidarFrame& frame, int m_row) { SuppressBlooming(frame, m_row, calib, filter, {}); },
        [&](LidarFrame& frame, int m_row) {
          reference::SuppressHighReflBlooming(frame, m_row, calib, filter);
        },
        tally);
  }
  EXPECT_GT(tally.changed, 50000);
}

TEST(BloomPass, GainsOfABlockAreTheReferences) {
  RandomRecords random(52);
  std::vector<float> scratch;
  int moved = 0;
  for (int round = 0; round < 300; ++round) {
    random.StartRound();
    LidarFrame frame =
        random.Frame(6 * random.Between(1, 3), 6 * random.Between(1, 6), 2, BrightStyle(random));
    for (std::vector<LidarPoint>& row : frame.points) {
      for (LidarPoint& point : row) point.echoes[0].highReflBlooming = random.Chance(0.3);
    }
    const BloomSuppressCalib calib = RandomCalib(random);
    for (int row = 0; row < frame.height; row += 6) {
      for (int col = 0; col < frame.width; col += 6) {
        const int slot = random.Below(2);
        const float spread = BloomDistStdGain(frame.points, row, col, slot, calib, scratch, false);
        const float edge =
            BloomEdgeNeighborGain(frame.points, frame.height, frame.width, row, row + 6, col, slot,
                                  calib.edge_neighbor_threshold_m, -1, -1, false);
        ASSERT_TRUE(SameValue(spread, reference::DistStdGain(frame.points, row, col, slot, calib)));
        ASSERT_TRUE(SameValue(
            edge, reference::EdgeNeighborGain(frame.points, frame.height, frame.width, row, row + 6,
                                              col, slot, calib.edge_neighbor_threshold_m)));
        moved += spread != 1.0F && edge != 1.0F ? 1 : 0;
      }
    }
  }
  EXPECT_GT(moved, 300);
}

TEST(BloomPass, PowerPatternIsTheReferences) {
  RandomRecords random(53);
  int scored = 0;
  for (int round = 0; round < 300; ++round) {
    random.StartRound();
    const LidarFrame frame =
        random.Frame(random.Between(1, 18), random.Between(1, 24), 2, BrightStyle(random));
    const BloomSuppressCalib calib = RandomCalib(random);
    for (int i = 0; i < 60; ++i) {
      const int row = random.Below(frame.height);
      const int col = random.Below(frame.width);
      const int slot = random.Below(2);
      const float score =
          MatchPowerPattern(frame, row, col, slot, calib.power_template, calib, false);
      const float expected = reference::PatternMatchPower(frame, row, col, slot, calib);
      ASSERT_TRUE(SameValue(score, expected)) << score << ", expected " << expected;
      scored += score >= 0.0F ? 1 : 0;
    }
  }
  EXPECT_GT(scored, 1000);
}

}  // namespace
}  // namespace kerul::lidar::testing
