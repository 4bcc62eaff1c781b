#include "MIPI_reader/node/ground/ground_plane_stage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "MIPI_reader/node/ground/ground_plane.h"
#include "support/frame_builder.h"
#include "support/ground_settings_builder.h"

namespace kerul::lidar {
namespace {

using frame_builder::SetEcho;
using ground_builder::DefaultSettings;
using ground_builder::GetDirection;
using ground_builder::kMrowHeight;
using ground_builder::SetDirection;

constexpr int kRows = 18;
constexpr int kCols = 40;
constexpr float kHeight = 1.5F;  // metres above the ground

// Level ground seen by the downward grid, with a little deterministic roughness so that no plane
// fits exactly; everything is labelled ground beforehand.
struct Scene {
  LidarFrame frame{kRows, kCols, 2};
  AngleCalibGrid grid = ground_builder::DownwardGrid(kRows, kCols);
  GroundSettings settings = DefaultSettings();

  Scene() {
    settings.plane_enable = true;
    for (int row = 0; row < kRows; ++row) {
      for (int col = 0; col < kCols; ++col) {
        const float rough = 0.002F * static_cast<float>((row * 7 + col * 13) % 11 - 5);
        SetEcho(At(row, col), kHeight / -GetDirection(grid, row, col).z + rough);
        At(row, col).ground = true;
      }
    }
  }
  LidarEcho& At(int row, int col) {
    return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[0];
  }
  // Points of the fit before any thinning, in their order.
  std::vector<Point3f> Points(const std::vector<int>& rows, int step) {
    std::vector<Point3f> points;
    for (const int row : rows) {
      for (int col = 0; col < kCols; col += step) {
        const LidarEcho& echo = At(row, col);
        if (!echo.ground || !(echo.dist_raw > 0.0F)) continue;
        const Point3f ray = GetDirection(grid, row, col);
        points.push_back({ray.x * echo.dist_raw, ray.y * echo.dist_raw, ray.z * echo.dist_raw});
      }
    }
    return points;
  }
  void Run(int m_row = 1) { LabelGroundByPlane(frame.points, m_row, kMrowHeight, settings, grid); }
};

const std::vector<int> kFitRows = {6, 7, 8, 9, 10, 11, 4, 5};

// Checks that the miniflash row was relabelled and fully pulled by `plane`.
void ExpectPulledBy(const GroundPlane& plane, Scene& before, Scene& after, int first_row) {
  ASSERT_TRUE(plane.valid);
  int compared = 0;
  for (int row = first_row; row < first_row + 6; ++row) {
    for (int col = 0; col < kCols; ++col) {
      const Point3f ray = GetDirection(before.grid, row, col);
      const float d = before.At(row, col).dist_raw;
      const float residual =
          std::fabs(plane.a * ray.x * d + plane.b * ray.y * d + plane.c * ray.z * d - plane.d);
      ASSERT_LT(residual, 0.05F);
      const float t = plane.d / (plane.a * ray.x + plane.b * ray.y + plane.c * ray.z);
      EXPECT_TRUE(after.At(row, col).ground);
      EXPECT_EQ(after.At(row, col).dist_raw, 1.0F * t + (1.0F - 1.0F) * d);
      EXPECT_EQ(after.At(row, col).dist_proc, d);
      ++compared;
    }
  }
  EXPECT_EQ(compared, 6 * kCols);
}

TEST(GroundPlaneStage, FitsItsOwnRowsThenTheLastTwoBefore) {
  Scene before;
  Scene after;
  after.Run();
  const GroundPlane plane = FitGroundPlaneRobust(before.Points(kFitRows, 2), 0.8F);
  ExpectPulledBy(plane, before, after, 6);
  // The order of the points shows in the last bit; make sure that the test could see it.
  const GroundPlane other =
      FitGroundPlaneRobust(before.Points({4, 5, 6, 7, 8, 9, 10, 11}, 2), 0.8F);
  EXPECT_TRUE(plane.a != other.a || plane.b != other.b || plane.d != other.d);
  frame_builder::ExpectSameRows(before.frame.points, after.frame.points, 0, 6);
  frame_builder::ExpectSameRows(before.frame.points, after.frame.points, 12, 18);
}

TEST(GroundPlaneStage, TheFirstMiniflashRowHasNoRowsBefore) {
  Scene before;
  Scene after;
  after.Run(0);
  ExpectPulledBy(FitGroundPlaneRobust(before.Points({0, 1, 2, 3, 4, 5}, 2), 0.8F), before, after,
                 0);
}

TEST(GroundPlaneStage, KeepRatioAndColumnStrideComeFromTheSettings) {
  for (const int step : {-3, 0, 1, 3, 7}) {
    Scene before;
    Scene after;
    after.settings.plane_col_step = step;
    after.settings.plane_keep_ratio = 0.6F;
    after.settings.plane_min_points = 4;
    after.Run();
    const int used = step < 1 ? 1 : step;
    ExpectPulledBy(FitGroundPlaneRobust(before.Points(kFitRows, used), 0.6F), before, after, 6);
  }
}

TEST(GroundPlaneStage, TooManyPointsAreThinnedEvenlyWithFirstAndLastKept) {
  for (const int most : {-1, 4, 7, 100, 159, 160, 161}) {
    Scene before;
    Scene after;
    after.settings.plane_max_points = most;
    after.settings.plane_min_points = 4;
    after.settings.plane_inlier_m = 1.0F;  // four points alone may fit badly
    after.settings.plane_pull_full_m = 9.0F;
    after.Run();
    const std::vector<Point3f> all = before.Points(kFitRows, 2);
    ASSERT_EQ(all.size(), 160U);
    std::vector<Point3f> thinned;
    const int m = most < 4 ? 4 : most;
    if (m >= 160) {
      thinned = all;
    } else {
      for (int i = 0; i < m; ++i)
        thinned.push_back(all[static_cast<std::size_t>(i * 159 / (m - 1))]);
    }
    const GroundPlane plane = FitGroundPlaneRobust(thinned, 0.8F);
    ASSERT_TRUE(plane.valid);
    const Point3f ray = GetDirection(before.grid, 8, 20);
    EXPECT_EQ(after.At(8, 20).dist_raw,
              plane.d / (plane.a * ray.x + plane.b * ray.y + plane.c * ray.z))
        << most;
  }
}

TEST(GroundPlaneStage, TooFewPointsKeepLabelsAndRanges) {
  Scene scene;
  scene.At(8, 4).ground = false;
  scene.settings.plane_min_points = 160;  // 159 are left
  const FrameRows before = scene.frame.points;
  scene.Run();
  frame_builder::ExpectSameRows(scene.frame.points, before, 0, kRows);
  scene.settings.plane_min_points = 159;
  scene.Run();
  EXPECT_TRUE(scene.At(8, 4).ground);
}

TEST(GroundPlaneStage, AMaximumBelowTheMinimumEndsTheStage) {
  Scene scene;
  scene.settings.plane_max_points = 99;
  const FrameRows before = scene.frame.points;
  scene.Run();
  frame_builder::ExpectSameRows(scene.frame.points, before, 0, kRows);
}

TEST(GroundPlaneStage, FewerThanFourPointsAreNeverEnough) {
  Scene scene;
  scene.settings.plane_min_points = 0;
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) scene.At(row, col).ground = row == 8 && col < 6;
  }
  const FrameRows before = scene.frame.points;  // columns 0, 2 and 4 count
  scene.Run();
  frame_builder::ExpectSameRows(scene.frame.points, before, 0, kRows);
}

TEST(GroundPlaneStage, OnlyUsableGroundPointsEnterTheFit) {
  Scene before;
  Scene after;
  for (Scene* scene : {&before, &after}) {
    scene->At(7, 2).ground = false;
    scene->At(7, 4).dist_raw = 0.0F;
    scene->At(7, 6).dist_raw = -3.0F;
    // Far off the plane: would spoil the fit.
    scene->At(7, 2).dist_raw = 900.0F;
  }
  after.At(7, 8).dist_raw = 700.0F;  // its ray is broken below
  SetDirection(after.grid, 7, 8, {0.0F, 0.0F, 0.0F});
  before.At(7, 8).ground = false;
  after.Run();
  const GroundPlane plane = FitGroundPlaneRobust(before.Points(kFitRows, 2), 0.8F);
  const Point3f ray = GetDirection(before.grid, 8, 20);
  EXPECT_EQ(after.At(8, 20).dist_raw,
            plane.d / (plane.a * ray.x + plane.b * ray.y + plane.c * ray.z));
  EXPECT_FALSE(after.At(7, 2).ground);
  EXPECT_FALSE(after.At(7, 4).ground);
  EXPECT_FALSE(after.At(7, 6).ground);
  EXPECT_FALSE(after.At(7, 8).ground);
  EXPECT_EQ(after.At(7, 8).dist_raw, 700.0F);
}

TEST(GroundPlaneStage, UnusableDirectionsLoseTheirLabel) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  constexpr float kInf = std::numeric_limits<float>::infinity();
  const Point3f broken[] = {{0.0F, 0.0F, 0.0F},
                            {kNan, 0.0F, -1.0F},
                            {0.0F, kInf, -1.0F},
                            {1.0F, 0.0F, -kInf},
                            {1e-4F, 0.0F, 0.0F}};
  for (const Point3f& ray : broken) {
    Scene scene;
    SetDirection(scene.grid, 9, 21, ray);
    scene.Run();
    EXPECT_FALSE(scene.At(9, 21).ground);
    EXPECT_TRUE(scene.At(9, 20).ground);
  }
}

TEST(GroundPlaneStage, PixelsOutsideTheGridLoseTheirLabel) {
  Scene scene;
  scene.grid = ground_builder::DownwardGrid(11, kCols);
  scene.Run();
  for (int col = 0; col < kCols; ++col) {
    EXPECT_TRUE(scene.At(10, col).ground);
    EXPECT_FALSE(scene.At(11, col).ground);
  }
}

TEST(GroundPlaneStage, OuterColumnsAndUnlabelledPixelsCanBecomeGround) {
  Scene scene;
  for (int row = 6; row < 12; ++row) {
    for (const int col : {0, 1, 17, 38, 39}) scene.At(row, col).ground = false;
  }
  scene.At(9, 11).dist_raw += 2.0F;  // an obstacle that was labelled
  const float obstacle = scene.At(9, 11).dist_raw;
  scene.Run();
  for (int row = 6; row < 12; ++row) {
    for (const int col : {0, 1, 17, 38, 39}) EXPECT_TRUE(scene.At(row, col).ground);
  }
  EXPECT_FALSE(scene.At(9, 11).ground);
  EXPECT_EQ(scene.At(9, 11).dist_raw, obstacle);
}

TEST(GroundPlaneStage, NoPullLeavesTheRangesAlone) {
  for (const float pull : {0.0F, -1.0F, std::numeric_limits<float>::quiet_NaN()}) {
    Scene scene;
    scene.settings.plane_pull = pull;
    const float d = scene.At(8, 20).dist_raw;
    scene.At(8, 20).ground = false;
    scene.Run();
    EXPECT_TRUE(scene.At(8, 20).ground);
    EXPECT_EQ(scene.At(8, 20).dist_raw, d);
  }
}

// A flat sheet at z = 4 whose plane is exactly (0, 0, 1, 4), to test single pixels against: a
// square of four points, symmetric about the z axis, and one free pixel at (0, 4).
struct SheetScene {
  LidarFrame frame{6, 8, 2};
  AngleCalibGrid grid = ground_builder::EmptyGrid(6, 8);
  GroundSettings settings = DefaultSettings();

  SheetScene() {
    settings.plane_enable = true;
    settings.plane_min_points = 4;
    settings.plane_col_step = 1;
    settings.plane_inlier_m = 100.0F;
    const float sign[4][2] = {{1, 1}, {1, -1}, {-1, 1}, {-1, -1}};
    for (int i = 0; i < 4; ++i) {
      SetDirection(grid, 0, i, {sign[i][0], sign[i][1], 1.0F});
      SetEcho(At(i), 4.0F);
      At(i).ground = true;
    }
  }
  LidarEcho& At(int col) { return frame.points[0][static_cast<std::size_t>(col)].echoes[0]; }
  // Range of the free pixel, along a ray of the given z, after the stage.
  float Pull(const Point3f& ray, float d) {
    SetDirection(grid, 0, 4, ray);
    SetEcho(At(4), d);
    LabelGroundByPlane(frame.points, 0, kMrowHeight, settings, grid);
    EXPECT_EQ(At(0).dist_raw, 4.0F);
    return At(4).dist_raw;
  }
};

TEST(GroundPlaneStage, LabelNeedsAResidualBelowTheLimit) {
  for (const float d : {4.25F, std::nextafter(4.25F, 4.0F)}) {
    SheetScene scene;
    scene.settings.plane_inlier_m = 0.25F;
    scene.Pull({0.0F, 0.0F, 1.0F}, d);
    EXPECT_EQ(scene.At(4).ground, d < 4.25F);
  }
}

TEST(GroundPlaneStage, NearPointsTakeTheFullPullAndFarOnesLess) {
  const Point3f up{0.0F, 0.0F, 1.0F};
  SheetScene scene;
  scene.settings.plane_pull_full_m = 0.25F;
  scene.settings.plane_pull_zero_m = 0.75F;
  EXPECT_EQ(scene.Pull(up, 4.25F), 4.0F);   // exactly the full distance
  EXPECT_EQ(scene.Pull(up, 4.5F), 4.25F);   // half way through the ramp: half the pull
  EXPECT_EQ(scene.Pull(up, 3.5F), 3.75F);   // on the near side too
  EXPECT_EQ(scene.Pull(up, 4.75F), 4.75F);  // exactly the zero distance
  EXPECT_EQ(scene.Pull(up, 5.0F), 5.0F);
  scene.settings.plane_pull = 0.5F;
  EXPECT_EQ(scene.Pull(up, 4.25F), 4.125F);
  EXPECT_EQ(scene.Pull(up, 4.5F), 4.375F);
  scene.settings.plane_pull = 2.0F;  // deliberately not limited: 2 * 4 - 4.25
  EXPECT_EQ(scene.Pull(up, 4.25F), 3.75F);
}

TEST(GroundPlaneStage, PullGoesAlongTheRay) {
  // Along z = 0.5 the plane is 8 m away.
  SheetScene scene;
  EXPECT_EQ(scene.Pull({0.75F, 0.0F, 0.5F}, 8.25F), 8.0F);
}

TEST(GroundPlaneStage, WithoutARampOnlyTheFullPullIsLeft) {
  const Point3f up{0.0F, 0.0F, 1.0F};
  SheetScene scene;
  scene.settings.plane_pull_full_m = 0.5F;
  for (const float zero : {0.5F, 0.25F}) {
    scene.settings.plane_pull_zero_m = zero;
    EXPECT_EQ(scene.Pull(up, 4.5F), 4.0F);
    EXPECT_EQ(scene.Pull(up, 4.5625F), 4.5625F);
  }
  scene.settings.plane_pull_zero_m = 0.75F;
  for (const float full : {0.0F, -0.25F}) {
    scene.settings.plane_pull_full_m = full;
    EXPECT_EQ(scene.Pull(up, 4.125F), 4.125F);
  }
}

TEST(GroundPlaneStage, ARayAlongThePlaneIsLabelledButNotMoved) {
  SheetScene scene;
  scene.settings.plane_pull_full_m = 1e30F;
  EXPECT_EQ(scene.Pull({1.0F, 0.0F, 0.0F}, 3.0F), 3.0F);
  EXPECT_TRUE(scene.At(4).ground);
  EXPECT_EQ(scene.Pull({1.0F, 0.0F, 0.5e-8F}, 3.0F), 3.0F);
  EXPECT_EQ(scene.Pull({1.0F, 0.0F, 2e-8F}, 3.0F), 4.0F / 2e-8F);
}

TEST(GroundPlaneStage, APlaneBehindTheSensorLabelsButDoesNotMove) {
  SheetScene scene;
  scene.settings.plane_pull_full_m = 1e30F;
  EXPECT_EQ(scene.Pull({0.0F, 0.0F, -1.0F}, 3.0F), 3.0F);
  EXPECT_TRUE(scene.At(4).ground);
}

TEST(GroundPlaneStage, RunsAfterTheFirstStageOnlyWhenAskedAndWithAValidGrid) {
  for (const bool enable : {false, true}) {
    for (const bool valid : {false, true}) {
      Scene scene;
      scene.settings.plane_enable = enable;
      scene.grid.valid = valid;
      LabelGround(scene.frame, 1, kMrowHeight, scene.settings, scene.grid);
      // Only the plane labels the outermost columns.
      EXPECT_EQ(scene.At(8, 0).ground, enable && valid);
    }
  }
}

}  // namespace
}  // namespace kerul::lidar
