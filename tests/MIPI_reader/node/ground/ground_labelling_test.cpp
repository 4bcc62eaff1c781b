#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/ground/ground_refl_scale.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "support/frame_builder.h"
#include "support/ground_settings_builder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using frame_builder::SetEcho;
using ground_builder::DefaultSettings;
using ground_builder::kMrowHeight;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
const AngleCalibGrid kNoGrid;

using GroundLabelling = FormsTest;
RUN_IN_EVERY_FORM(GroundLabelling);

// The pixel at (8, 5) of a 24 x 12 frame; its miniflash row is 1. By default ranges rise by 0.25 m
// a row from 8.0 m at the pixel's own, and are level along each row: ground.
struct Scene {
  LidarFrame frame{24, 12, 2};
  GroundSettings settings = DefaultSettings();

  Scene() {
    for (int row = 0; row < 24; ++row) {
      for (int col = 0; col < 12; ++col) {
        SetEcho(At(row, col), 8.0F + 0.25F * static_cast<float>(row - 8));
      }
    }
  }
  LidarEcho& At(int row, int col) {
    return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[0];
  }
  // The five ranges down the pixel's column.
  void SetColumn(const std::vector<float>& ranges) {
    for (int i = 0; i < 5; ++i) At(6 + i, 5).dist_raw = ranges[static_cast<std::size_t>(i)];
    // The row stays level with the pixel.
    for (const int col : {3, 4, 6, 7}) At(8, col).dist_raw = ranges[2];
  }
  void SetRow(float a, float b, float c, float d) {
    At(8, 3).dist_raw = a;
    At(8, 4).dist_raw = b;
    At(8, 6).dist_raw = c;
    At(8, 7).dist_raw = d;
  }
  bool Run() {
    LabelGround(frame, 1, kMrowHeight, settings, kNoGrid);
    return At(8, 5).ground;
  }
};

bool IsGroundColumn(const std::vector<float>& ranges) {
  Scene scene;
  scene.SetColumn(ranges);
  return scene.Run();
}

TEST_P(GroundLabelling, RisingColumnsAndLevelRowsAreGround) {
  Scene scene;
  scene.At(12, 5).ground = true;  // another miniflash row: not looked at
  LabelGround(scene.frame, 1, kMrowHeight, scene.settings, kNoGrid);
  int labelled = 0;
  for (int row = 0; row < 24; ++row) {
    for (int col = 0; col < 12; ++col) {
      const bool inside = row >= 6 && row <= 11 && col >= 2 && col <= 9;
      EXPECT_EQ(scene.At(row, col).ground, inside || (row == 12 && col == 5));
      EXPECT_FALSE(scene.frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)]
                       .echoes[1]
                       .ground);
      if (inside) ++labelled;
    }
  }
  EXPECT_EQ(labelled, 6 * 8);
  // Without seed and smoothing only the labels change.
  EXPECT_EQ(scene.At(8, 5).dist_raw, 8.0F);
  EXPECT_EQ(scene.At(8, 5).dist_proc, 8.0F);
  EXPECT_EQ(scene.At(8, 5).refl_raw, 10.0F);
}

// A frame of the given height in which every pixel would be ground but for its place.
LidarFrame TallGround(int height) {
  LidarFrame frame(height, 8, 2);
  for (std::size_t row = 0; row < frame.points.size(); ++row) {
    for (LidarPoint& point : frame.points[row]) {
      SetEcho(point.echoes[0], 100.0F + 0.25F * static_cast<float>(row));
      point.echoes[0].ground = true;
    }
  }
  return frame;
}

TEST_P(GroundLabelling, OuterRowsAreNeverGroundAndAreCleared) {
  LidarFrame frame = TallGround(120);
  for (int m_row = 0; m_row < 20; ++m_row) {
    LabelGround(frame, m_row, kMrowHeight, DefaultSettings(), kNoGrid);
  }
  for (std::size_t row = 0; row < 120; ++row) {
    for (std::size_t col = 0; col < 8; ++col) {
      const bool expected = row >= 2 && row <= 108 && col >= 2 && col <= 5;
      EXPECT_EQ(frame.points[row][col].echoes[0].ground, expected) << row << ' ' << col;
    }
  }
}

TEST_P(GroundLabelling, TheLastTwoRowsOfALowFrameAreNeverGround) {
  LidarFrame frame = TallGround(12);
  LabelGround(frame, 1, kMrowHeight, DefaultSettings(), kNoGrid);
  for (std::size_t row = 6; row < 12; ++row) {
    EXPECT_EQ(frame.points[row][4].echoes[0].ground, row <= 9) << row;
  }
}

TEST_P(GroundLabelling, UpperRowsNeedRangesOfNinetyNineMetres) {
  for (const bool second_too_near : {false, true}) {
    LidarFrame frame = TallGround(120);
    const float start = second_too_near ? 98.25F : 98.75F;
    for (std::size_t row = 106; row <= 110; ++row) {
      for (LidarPoint& point : frame.points[row]) {
        point.echoes[0].dist_raw = start + 0.5F * static_cast<float>(row - 106);
      }
    }
    LabelGround(frame, 18, kMrowHeight, DefaultSettings(), kNoGrid);
    EXPECT_EQ(frame.points[108][4].echoes[0].ground, !second_too_near);
  }
}

TEST_P(GroundLabelling, OneRangeOfTheColumnMayBeTooNear) {
  Scene scene;
  scene.settings.min_dist = {0.0F, 7.75F};
  EXPECT_TRUE(scene.Run());  // 7.5 alone is below
  scene.settings.min_dist = {0.0F, std::nextafter(7.75F, 8.0F)};
  EXPECT_FALSE(scene.Run());  // 7.5 and 7.75 are
}

TEST_P(GroundLabelling, MinimumRangeIsLookedUpByMiniflashRow) {
  Scene scene;
  scene.settings.min_dist = {9.5F};  // past the end: the last value
  EXPECT_FALSE(scene.Run());
  scene.settings.min_dist = {9.5F, 0.4F, 9.5F};
  EXPECT_TRUE(scene.Run());
  // An empty list means 1.0 m.
  scene.settings.min_dist.clear();
  scene.SetColumn({0.7F, 1.0F, 1.3F, 1.6F, 1.9F});
  EXPECT_TRUE(scene.Run());
  scene.SetColumn({0.6F, std::nextafter(1.0F, 0.0F), 1.3F, 1.6F, 1.9F});
  EXPECT_FALSE(scene.Run());
}

TEST_P(GroundLabelling, AHoleInTheColumnRulesThePixelOut) {
  for (int i = 0; i < 5; ++i) {
    for (const float hole : {0.0F, -1.0F, kNan}) {
      Scene scene;
      scene.At(6 + i, 5).dist_raw = hole;
      EXPECT_FALSE(scene.Run()) << i;
    }
  }
}

TEST_P(GroundLabelling, FourConsecutiveRisesAreEnough) {
  EXPECT_TRUE(IsGroundColumn({7.5F, 7.75F, 8.0F, 8.25F, 8.5F}));
  EXPECT_TRUE(IsGroundColumn({7.5F, 7.75F, 8.0F, 8.25F, 8.0F}));    // first four
  EXPECT_TRUE(IsGroundColumn({8.0F, 7.75F, 8.0F, 8.25F, 8.5F}));    // last four
  EXPECT_FALSE(IsGroundColumn({8.0F, 7.75F, 8.0F, 8.25F, 8.0F}));   // three
  EXPECT_FALSE(IsGroundColumn({7.5F, 7.75F, 8.0F, 7.75F, 8.5F}));   // broken inside
  EXPECT_FALSE(IsGroundColumn({7.25F, 8.25F, 8.0F, 8.5F, 8.75F}));  // broken before the pixel
}

TEST_P(GroundLabelling, EqualNeighboursAreNoRise) {
  EXPECT_FALSE(IsGroundColumn({7.5F, 8.0F, 8.0F, 8.25F, 8.5F}));
  EXPECT_FALSE(IsGroundColumn({7.5F, 7.75F, 8.0F, 8.0F, 8.5F}));
  EXPECT_FALSE(IsGroundColumn({7.75F, 7.75F, 8.0F, 8.25F, 8.25F}));
  EXPECT_TRUE(IsGroundColumn({7.75F, 7.75F, 8.0F, 8.25F, 8.5F}));  // the last four rise
}

TEST_P(GroundLabelling, RiseHasToExceedTheGateStrictly) {
  // At 8 m the cap of 0.5 counts; the run spans exactly the cap.
  Scene scene;
  scene.settings.vert_span_max = 0.5F;
  scene.settings.vert_span_ratio = 1.0F;
  scene.SetColumn({7.75F, 7.875F, 8.0F, 8.125F, 8.25F});
  EXPECT_FALSE(scene.Run());
  scene.SetColumn({7.75F, 7.875F, 8.0F, 8.125F, std::nextafter(8.25F, 9.0F)});
  EXPECT_TRUE(scene.Run());
  // The ratio is the smaller one: 0.0625 * 8 = 0.5 again.
  scene.settings.vert_span_max = 9.0F;
  scene.settings.vert_span_ratio = 0.0625F;
  EXPECT_TRUE(scene.Run());
  scene.SetColumn({7.75F, 7.875F, 8.0F, 8.125F, 8.25F});
  EXPECT_FALSE(scene.Run());
}

TEST_P(GroundLabelling, RiseIsMeasuredOverTheRunOnly) {
  // First four: 7.9 to 8.3 is the run; the fifth falls back and does not count.
  Scene scene;
  scene.settings.vert_span_max = 0.5F;
  scene.settings.vert_span_ratio = 1.0F;
  scene.SetColumn({7.75F, 7.875F, 8.0F, 8.125F, 7.0F});  // 0.375
  EXPECT_FALSE(scene.Run());
  scene.SetColumn({9.0F, 7.5F, 8.0F, 8.125F, 8.25F});  // last four: 0.75
  EXPECT_TRUE(scene.Run());
}

TEST_P(GroundLabelling, WithoutAValidNeighbourInTheRowThereIsNoGround) {
  Scene scene;
  scene.SetRow(0.0F, 0.0F, 0.0F, 0.0F);
  EXPECT_FALSE(scene.Run());
  scene.SetRow(kNan, 0.3F, 0.0F, -8.0F);
  EXPECT_FALSE(scene.Run());
  scene.SetRow(0.0F, 0.0F, 0.0F, 8.0F);  // one is enough
  EXPECT_TRUE(scene.Run());
}

TEST_P(GroundLabelling, ANeighbourAtTheMinimumRangeCountsAndANearerOneDoesNot) {
  Scene scene;
  scene.settings.min_dist = {7.875F};
  scene.settings.vert_span_max = 0.25F;
  scene.SetColumn({7.75F, 7.875F, 8.0F, 8.125F, 8.25F});  // one too near
  scene.SetRow(7.875F, 0.0F, 0.0F, 0.0F);
  EXPECT_TRUE(scene.Run());
  scene.SetRow(std::nextafter(7.875F, 0.0F), 0.0F, 0.0F, 0.0F);
  EXPECT_FALSE(scene.Run());
}

TEST_P(GroundLabelling, MeanGateOfTheRowIsStrict) {
  Scene scene;
  scene.settings.max_diff_ratio = 1.0F;
  scene.settings.max_diff_max = 9.0F;
  for (const bool by_ratio : {false, true}) {
    // The gate is 0.25 m, by its cap or as 1/32 of 8 m.
    scene.settings.mean_diff_max = by_ratio ? 9.0F : 0.25F;
    scene.settings.mean_diff_ratio = by_ratio ? 0.03125F : 1.0F;
    scene.SetRow(8.25F, 8.25F, 8.25F, 8.25F);
    EXPECT_FALSE(scene.Run());
    scene.SetRow(8.25F, 8.25F, 8.25F, 8.125F);
    EXPECT_TRUE(scene.Run());
    scene.SetRow(7.75F, 7.75F, 7.75F, 7.75F);
    EXPECT_FALSE(scene.Run());
    scene.SetRow(7.5F, 7.5F, 8.5F, 8.5F);  // far off, but level in the mean
    EXPECT_TRUE(scene.Run());
    scene.SetRow(7.75F, 0.0F, 0.0F, 8.25F);  // the mean is over valid ones only
    EXPECT_TRUE(scene.Run());
  }
}

TEST_P(GroundLabelling, LargestDifferenceOfTheRowIsStrict) {
  Scene scene;
  scene.settings.mean_diff_ratio = 1.0F;
  scene.settings.mean_diff_max = 9.0F;
  for (const bool by_ratio : {false, true}) {
    scene.settings.max_diff_max = by_ratio ? 9.0F : 0.25F;
    scene.settings.max_diff_ratio = by_ratio ? 0.03125F : 1.0F;
    scene.SetRow(8.0F, 8.0F, 8.0F, 8.25F);
    EXPECT_FALSE(scene.Run());
    scene.SetRow(8.0F, 8.0F, 8.0F, std::nextafter(8.25F, 8.0F));
    EXPECT_TRUE(scene.Run());
    scene.SetRow(7.75F, 8.0F, 8.0F, 8.0F);
    EXPECT_FALSE(scene.Run());
    scene.SetRow(0.0F, 8.0F, 8.0F, 8.0F);  // below the smallest ground range: not looked at
    EXPECT_TRUE(scene.Run());
  }
}

TEST_P(GroundLabelling, DefaultGatesAtEightMetres) {
  // Mean gate min(0.3, 0.04 * 8) = 0.3, largest difference min(0.2, 1.6) = 0.2.
  Scene scene;
  scene.SetRow(8.19F, 8.19F, 8.19F, 8.19F);
  EXPECT_TRUE(scene.Run());
  scene.SetRow(8.0F, 8.0F, 8.0F, 8.21F);
  EXPECT_FALSE(scene.Run());
}

// ---- Reflectivity ----

TEST_P(GroundLabelling, AStoredScaleIsAppliedWithTheSeedOff) {
  const float limit = 0.999F;
  for (const float scale : {0.5F, std::nextafter(limit, 0.0F), limit, 1.0F, kNan}) {
    Scene scene;
    scene.At(8, 5).ground_refl_scale = scale;
    scene.At(8, 5).refl_proc = 77.0F;
    EXPECT_TRUE(scene.Run());
    const bool applied = scale < limit;
    EXPECT_EQ(scene.At(8, 5).refl_raw, applied ? 10.0F / scale : 10.0F);
    EXPECT_EQ(scene.At(8, 5).refl_proc, applied ? 10.0F / scale : 77.0F);
  }
}

TEST_P(GroundLabelling, AScaleIsNotAppliedToWhatIsNoGround) {
  Scene scene;
  scene.At(8, 5).ground_refl_scale = 0.5F;
  scene.SetColumn({8.0F, 8.0F, 8.0F, 8.0F, 8.0F});
  EXPECT_FALSE(scene.Run());
  EXPECT_EQ(scene.At(8, 5).refl_raw, 10.0F);
}

TEST_P(GroundLabelling, TheSeedTakesTheRunAndStoresItsScale) {
  const AngleCalibGrid grid = ground_builder::DownwardGrid(24, 12);
  struct RunCase {
    std::vector<float> column;
    std::size_t first;
    int count;
  };
  const RunCase cases[] = {{{7.5F, 7.75F, 8.0F, 8.25F, 8.5F}, 0, 5},
                           {{7.5F, 7.75F, 8.0F, 8.25F, 8.0F}, 0, 4},
                           {{8.0F, 7.75F, 8.0F, 8.25F, 8.5F}, 1, 4}};
  for (const RunCase& run : cases) {
    Scene scene;
    scene.settings.vert_seed_enable = true;
    scene.SetColumn(run.column);
    scene.At(8, 5).ground_refl_scale = 0.123F;
    LabelGround(scene.frame, 1, kMrowHeight, scene.settings, grid);
    ASSERT_TRUE(scene.At(8, 5).ground);
    const float expected = EstimateGroundReflScale(run.column.data() + run.first, run.count, 8, 5,
                                                   run.first == 0 ? -2 : -1, grid);
    EXPECT_LT(expected, 0.999F);
    EXPECT_EQ(scene.At(8, 5).ground_refl_scale, expected);
    EXPECT_EQ(scene.At(8, 5).refl_raw, 10.0F / expected);
    EXPECT_EQ(scene.At(8, 5).refl_proc, 10.0F / expected);
  }
}

TEST_P(GroundLabelling, WithoutAGridTheSeedStoresOne) {
  Scene scene;
  scene.settings.vert_seed_enable = true;
  scene.At(8, 5).ground_refl_scale = 0.5F;
  EXPECT_TRUE(scene.Run());
  EXPECT_EQ(scene.At(8, 5).ground_refl_scale, 1.0F);
  EXPECT_EQ(scene.At(8, 5).refl_raw, 10.0F);
}

// ---- Smoothing ----

TEST_P(GroundLabelling, SmoothingWeighsFivePixelsOfTheRow) {
  Scene scene;
  scene.settings.smooth_enable = true;
  scene.SetRow(8.01F, 8.02F, 8.03F, 8.04F);
  const float refl[5] = {1.0F, 2.0F, 3.0F, 4.0F, 5.0F};
  for (int i = 0; i < 5; ++i) scene.At(8, 3 + i).refl_raw = refl[i];
  EXPECT_TRUE(scene.Run());
  const float sum_w = 0.15F + 0.2F + 0.25F + 0.2F + 0.15F;
  EXPECT_EQ(scene.At(8, 5).dist_proc,
            (0.15F * 8.01F + 0.2F * 8.02F + 0.25F * 8.0F + 0.2F * 8.03F + 0.15F * 8.04F) / sum_w);
  EXPECT_EQ(scene.At(8, 5).refl_proc,
            (0.15F * 1.0F + 0.2F * 2.0F + 0.25F * 3.0F + 0.2F * 4.0F + 0.15F * 5.0F) / sum_w);
  EXPECT_EQ(scene.At(8, 5).dist_raw, 8.0F);
  EXPECT_EQ(scene.At(8, 5).refl_raw, 3.0F);
}

TEST_P(GroundLabelling, SmoothingLeavesOutWhatIsEmptyOrAtTheGate) {
  Scene scene;
  scene.settings.smooth_enable = true;
  // Both gates are caps: 0.5 and 0.25; the smaller one is the smoothing's.
  scene.settings.mean_diff_ratio = 1.0F;
  scene.settings.mean_diff_max = 0.25F;
  scene.settings.max_diff_ratio = 1.0F;
  scene.settings.max_diff_max = 0.5F;
  scene.SetRow(8.25F, 0.0F, 8.125F, 7.75F);
  EXPECT_TRUE(scene.Run());
  EXPECT_EQ(scene.At(8, 5).dist_proc, (0.25F * 8.0F + 0.2F * 8.125F) / (0.25F + 0.2F));
}

TEST_P(GroundLabelling, WithAGateOfZeroNothingIsGroundAndNothingSmoothed) {
  Scene scene;
  scene.settings.smooth_enable = true;
  scene.settings.mean_diff_max = 0.0F;
  scene.At(8, 5).dist_proc = 3.0F;
  EXPECT_FALSE(scene.Run());
  EXPECT_EQ(scene.At(8, 5).dist_proc, 3.0F);
}

TEST_P(GroundLabelling, SmoothingSeesTheCorrectedReflectivityToTheLeft) {
  Scene scene;
  scene.settings.smooth_enable = true;
  for (int col = 0; col < 12; ++col) scene.At(8, col).ground_refl_scale = 0.5F;
  EXPECT_TRUE(scene.Run());
  // Corrected from 10 to 20: the two pixels to the left and the pixel itself.
  const float sum_w = 0.15F + 0.2F + 0.25F + 0.2F + 0.15F;
  EXPECT_EQ(scene.At(8, 5).refl_proc,
            (0.15F * 20.0F + 0.2F * 20.0F + 0.25F * 20.0F + 0.2F * 10.0F + 0.15F * 10.0F) / sum_w);
  // The outer two columns are never ground, so column 2 finds them uncorrected.
  EXPECT_EQ(scene.At(8, 2).refl_proc,
            (0.15F * 10.0F + 0.2F * 10.0F + 0.25F * 20.0F + 0.2F * 10.0F + 0.15F * 10.0F) / sum_w);
}

// ---- Extent ----

TEST_P(GroundLabelling, AnyContentAndAnySizeStayInsideTheGrid) {
  int runs = 0;
  for (const int height : {0, 1, 4, 5, 6, 13}) {
    for (const int width : {0, 1, 4, 5, 7, 13}) {
      LidarFrame frame(height, width, 2);
      frame_builder::WildContent wild(static_cast<std::uint32_t>(height * 20 + width));
      wild.Fill(frame.points);
      GroundSettings settings = DefaultSettings();
      settings.vert_seed_enable = true;
      settings.smooth_enable = true;
      settings.plane_enable = true;
      settings.plane_min_points = 4;
      settings.vert_span_ratio = 0.0F;
      // A grid that is smaller than the frame, with broken entries.
      AngleCalibGrid grid = ground_builder::DownwardGrid(5, 6);
      for (std::size_t i = 0; i < grid.unit_xyz.size(); i += 7) grid.unit_xyz[i] = wild.Value();
      for (int m_row = -1; m_row <= 3; ++m_row) {
        LabelGround(frame, m_row, kMrowHeight, settings, grid);
        ++runs;
      }
    }
  }
  EXPECT_EQ(runs, 180);
}

TEST_P(GroundLabelling, OtherRowsAndSecondEchoesAreNotWritten) {
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    LidarFrame frame(18, 20, 2);
    frame_builder::WildContent(seed).Fill(frame.points);
    const FrameRows before = frame.points;
    GroundSettings settings = DefaultSettings();
    settings.vert_seed_enable = true;
    settings.smooth_enable = true;
    settings.plane_enable = true;
    settings.plane_min_points = 4;
    const AngleCalibGrid grid = ground_builder::DownwardGrid(18, 20);
    LabelGround(frame, 1, kMrowHeight, settings, grid);
    frame_builder::ExpectSameRows(frame.points, before, 0, 6);
    frame_builder::ExpectSameRows(frame.points, before, 12, 18);
    for (std::size_t row = 6; row < 12; ++row) {
      for (std::size_t col = 0; col < 20; ++col) {
        LidarPoint point = frame.points[row][col];
        point.echoes[0] = before[row][col].echoes[0];
        EXPECT_TRUE(frame_builder::SameBytes(point, before[row][col]));
      }
    }
  }
}

}  // namespace
}  // namespace kerul::lidar
