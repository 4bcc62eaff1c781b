// Every vector form of the first ground stage against the scalar form, record for record.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>

#include "MIPI_reader/node/ground/ground_rows.h"
#include "MIPI_reader/node/ground/ground_rules.h"
#include "support/frame_builder.h"
#include "support/ground_settings_builder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using frame_builder::ExpectSameRows;
using frame_builder::MakeRows;
using frame_builder::SetEcho;
using frame_builder::WildContent;
using ground_builder::DefaultSettings;
using ground_builder::DownwardGrid;
using ground_builder::kMrowHeight;

// Slopes that mostly pass, with holes, steps, ties and values on the gates.
void FillWithSlopes(FrameRows& rows, std::uint32_t seed) {
  std::mt19937 random(seed);
  const float rise = 0.125F * static_cast<float>(1 + random() % 4);
  const auto trouble_one_in = static_cast<unsigned>(4 + random() % 60);
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (LidarPoint& point : rows[row]) {
      float dist = 3.0F + rise * static_cast<float>(row);
      if (random() % 8 == 0) dist += 0.0625F * static_cast<float>(random() % 4);
      if (random() % trouble_one_in == 0) dist = random() % 2 == 0 ? 0.0F : 0.5F;
      SetEcho(point.echoes[0], dist, static_cast<float>(random() % 256));
      point.echoes[0].ground = random() % 2 == 0;
      point.echoes[0].ground_refl_scale = random() % 2 == 0 ? 0.5F : 1.0F;
    }
  }
}

class GroundLanes : public FormsTest {
 protected:
  // Runs both forms over all miniflash rows; returns the number of labels.
  static int ExpectLikeScalar(const FrameRows& rows, const GroundSettings& settings,
                              const AngleCalibGrid& grid) {
    FrameRows expected = rows;
    FrameRows got = rows;
    const int m_rows = static_cast<int>(rows.size()) / kMrowHeight + 1;
    for (int m_row = 0; m_row < m_rows; ++m_row) {
      LabelGroundByRise(got, m_row, kMrowHeight, settings, grid);
      const ForcedForm scalar(InstructionSet::kScalar);
      LabelGroundByRise(expected, m_row, kMrowHeight, settings, grid);
    }
    ExpectSameRows(expected, got, 0, rows.size());
    int labels = 0;
    for (const std::vector<LidarPoint>& line : expected) {
      for (const LidarPoint& point : line) labels += point.echoes[0].ground ? 1 : 0;
    }
    return labels;
  }

  static GroundSettings NearSettings() {
    GroundSettings settings = DefaultSettings();
    settings.min_dist = {1.0F};
    return settings;
  }
};
RUN_IN_EVERY_VECTOR_FORM(GroundLanes);

TEST_P(GroundLanes, LabelsWhatTheScalarFormLabels) {
  int labels = 0;
  int pixels = 0;
  for (std::uint32_t seed = 0; seed < 40; ++seed) {
    FrameRows rows = MakeRows(20, 3 + 3 * static_cast<int>(seed));
    FillWithSlopes(rows, seed);
    labels += ExpectLikeScalar(rows, NearSettings(), {});
    pixels += 20 * (3 + 3 * static_cast<int>(seed));
  }
  EXPECT_GT(labels, 1000);
  EXPECT_LT(labels, pixels - 1000);
}

TEST_P(GroundLanes, SeedsAndSmoothsWhatTheScalarFormDoes) {
  GroundSettings settings = NearSettings();
  int labels = 0;
  for (const bool seed : {false, true}) {
    for (const bool smooth : {false, true}) {
      settings.vert_seed_enable = seed;
      settings.smooth_enable = smooth;
      FrameRows rows = MakeRows(24, 50);
      FillWithSlopes(rows, 5);
      labels += ExpectLikeScalar(rows, settings, DownwardGrid(24, 50));
    }
  }
  EXPECT_GT(labels, 100);
}

TEST_P(GroundLanes, AgreesOnAnyContentAndAnySettings) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  for (std::uint32_t seed = 0; seed < 40; ++seed) {
    WildContent wild(seed);
    FrameRows rows = MakeRows(1 + static_cast<int>(seed % 17), 1 + static_cast<int>(7 * seed % 90),
                              seed % 4 == 0 ? 1 : 2);
    wild.Fill(rows);
    GroundSettings settings = NearSettings();
    if (seed % 2 == 1) {
      settings.vert_span_ratio = wild.Value();
      settings.vert_span_max = wild.Value();
      settings.mean_diff_ratio = wild.Value();
      settings.mean_diff_max = wild.Value();
      settings.max_diff_ratio = wild.Value();
      settings.max_diff_max = wild.Value();
      settings.min_dist = {seed % 8 == 1 ? kNan : wild.Value()};
    }
    ExpectLikeScalar(rows, settings, {});
  }
}

TEST_P(GroundLanes, EndsAtTheLastGroundRowAndAtTheFramesEdges) {
  FrameRows rows = MakeRows(120, 40);
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (LidarPoint& point : rows[row]) {
      SetEcho(point.echoes[0], 3.0F + 0.25F * static_cast<float>(row));
      point.echoes[0].ground = true;
    }
  }
  // Rows 2 to 108 and columns 2 to 37.
  EXPECT_EQ(ExpectLikeScalar(rows, NearSettings(), {}), 107 * 36);
}

TEST_P(GroundLanes, TakesTheWidestRowsAndLeavesWiderOnesToTheScalarForm) {
  for (const int width :
       {ground::kMaxColumns - 1, ground::kMaxColumns, ground::kMaxColumns + 1, 500}) {
    FrameRows rows = MakeRows(12, width);
    FillWithSlopes(rows, 9);
    EXPECT_GT(ExpectLikeScalar(rows, NearSettings(), {}), 0);
  }
}

}  // namespace
}  // namespace kerul::lidar
