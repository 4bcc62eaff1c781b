// Values just on either side of the ground stages' smallest numbers.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/ground/ground_plane.h"
#include "MIPI_reader/node/ground/ground_plane_stage.h"
#include "MIPI_reader/node/ground/ground_refl_scale.h"
#include "support/frame_builder.h"
#include "support/ground_settings_builder.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using frame_builder::SetEcho;
using ground_builder::EmptyGrid;
using ground_builder::SetDirection;
using ground_plane_detail::FitPlaneFromPoints;

LidarEcho& EchoAt(LidarFrame& frame, int row, int col) {
  return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)].echoes[0];
}

using GroundLimits = FormsTest;
RUN_IN_EVERY_FORM(GroundLimits);

TEST_P(GroundLimits, RangesBelowAMicrometreAreGatedAsOne) {
  // Ranges 1, 2, 3, 4, 5 tenths of a micrometre up the column: the rise is 0.4 micrometres.
  for (const float ratio : {0.3F, 0.5F}) {
    LidarFrame frame(12, 12, 2);
    for (int row = 0; row < 12; ++row) {
      for (int col = 0; col < 12; ++col) {
        SetEcho(EchoAt(frame, row, col), 1e-7F * static_cast<float>(row + 1));
      }
    }
    GroundSettings settings = ground_builder::DefaultSettings();
    settings.min_dist = {0.0F};
    settings.vert_span_ratio = ratio;
    LabelGround(frame, 0, ground_builder::kMrowHeight, settings, AngleCalibGrid{});
    EXPECT_EQ(EchoAt(frame, 2, 5).ground, ratio < 0.4F);
  }
}

// ---- Plane fit ----

// Corners of a slope of 45 degrees about the origin.
std::vector<Point3f> Slope(float half) {
  return {{half, half, half}, {-half, half, half}, {half, -half, -half}, {-half, -half, -half}};
}

TEST(GroundPlaneLimits, TheDeterminantOfALiftedCloudDecidesAtTenToTheMinusFourteen) {
  // With h = half squared and l = 1e-6 it is (h + l) (2 h l + l l): 0.84e-14 for 8 mm, 1.34e-14
  // for 9 mm. A lift of 1.2e-6 would be enough for 8 mm, one of 0.7e-6 too little for 9 mm.
  const GroundPlane level = FitPlaneFromPoints(Slope(0.008F));
  EXPECT_EQ(level.b, 0.0F);
  EXPECT_EQ(level.c, 1.0F);
  const GroundPlane slanted = FitPlaneFromPoints(Slope(0.009F));
  // Single precision keeps four digits of so small a determinant.
  EXPECT_NEAR(std::fabs(slanted.b), std::sqrt(0.5F), 1e-3F);
}

// Points on u = (0, 1, 1), v = (0, -1, 1) and x, thinnest along x, thinner along v than along u.
std::vector<Point3f> WideCloud(float unit) {
  const float u = 2.0F * unit;
  return {{0, u, u}, {0, -u, -u}, {0, -unit, unit}, {0, unit, -unit}, {unit, 0, 0}, {-unit, 0, 0}};
}

TEST(GroundPlaneLimits, AProductShorterThanTenToTheMinusTwelveEndsTheTurning) {
  // Spreads of 16/6, 4/6 and 2/6 times the unit squared. From (0, 0, 1) the first product is
  // sqrt(1/2) sqrt((6/16)^2 + (6/4)^2) = 1.093 over the unit squared.
  const GroundPlane kept = FitPlaneFromPoints(WideCloud(1.1e6F));  // 0.90e-12
  EXPECT_EQ(kept.b, 0.0F);
  EXPECT_EQ(kept.c, 1.0F);
  const GroundPlane turned = FitPlaneFromPoints(WideCloud(1.0e6F));  // 1.09e-12
  EXPECT_NEAR(turned.b, -std::sqrt(0.5F), 1e-3F);
  EXPECT_NEAR(turned.c, std::sqrt(0.5F), 1e-3F);
}

TEST(GroundPlaneLimits, AMarginOfANanometreKeepsNearlyEqualResidualsTogether) {
  // Three tilted squares whose tilts cancel: all twelve points give the plane z = 0 exactly, and a
  // residual is the height of its point. Eight are aimed at: those of `small` and `height`.
  const float height = 0.00390625F;         // 2^-8
  const float step = 4.6566128730774e-10F;  // 2^-31, the next float's distance
  for (const int steps : {2, 3}) {          // 0.93 and 1.4 nanometres
    const float small = static_cast<float>(steps) * step;
    std::vector<Point3f> points;
    // One of each square in turn: every sum comes back to 0 before it could be rounded.
    for (const float x : {1.0F, -1.0F}) {
      for (const float y : {1.0F, -1.0F}) {
        for (const float z : {small, height, -(height + small)}) points.push_back({x, y, x * z});
      }
    }
    ASSERT_EQ(FitPlaneFromPoints(points).a, 0.0F);
    const GroundPlane plane = FitGroundPlaneRobust(points, 0.7F);
    if (steps == 2) {
      EXPECT_EQ(plane.a, 0.0F);
    } else {
      EXPECT_NEAR(std::fabs(plane.a), 0.5F * height, 1e-5F);  // four of eight points are tilted
    }
  }
}

// ---- Plane stage ----

// Four points of the plane z = 4 and a free pixel at (0, 4), all of which are labelled.
struct SheetPixel {
  LidarFrame frame{6, 8, 2};
  AngleCalibGrid grid = EmptyGrid(6, 8);
  GroundSettings settings = ground_builder::DefaultSettings();

  SheetPixel(const Point3f& ray, float range) {
    settings.plane_min_points = 4;
    settings.plane_col_step = 1;
    settings.plane_inlier_m = 100.0F;
    settings.plane_pull_full_m = 1e30F;
    const Point3f corners[4] = {{1, 1, 1}, {1, -1, 1}, {-1, 1, 1}, {-1, -1, 1}};
    for (int i = 0; i < 4; ++i) {
      SetDirection(grid, 0, i, corners[i]);
      SetEcho(EchoAt(frame, 0, i), 4.0F);
      EchoAt(frame, 0, i).ground = true;
    }
    SetDirection(grid, 0, 4, ray);
    SetEcho(Free(), range);
    // Not in the fit: the stage's own test decides.
    Free().ground = false;
  }
  LidarEcho& Free() { return EchoAt(frame, 0, 4); }
  void Run() { LabelGroundByPlane(frame.points, 0, 6, settings, grid); }
};

TEST(GroundPlaneStageLimits, ARayNeedsASquaredLengthAboveTenToTheMinusEight) {
  for (const float x : {0.99e-4F, 1.01e-4F}) {
    SheetPixel pixel({x, 0.0F, 0.0F}, 3.0F);
    pixel.Run();
    EXPECT_EQ(pixel.Free().ground, x > 1e-4F);
  }
}

TEST(GroundPlaneStageLimits, WithoutARayOrARangeALabelIsLostWhateverTheLimit) {
  struct Case {
    Point3f ray;
    float range;
  };
  for (const Case& broken : {Case{{0, 0, 0}, 3.0F}, Case{{0, 0, 1}, 0.0F}, Case{{0, 0, 1}, -3.0F},
                             Case{{0, 0, std::nanf("")}, 3.0F}}) {
    SheetPixel pixel(broken.ray, broken.range);  // the residual is 7 m at most, the limit 100 m
    // A label from the stage before.
    pixel.Free().ground = true;
    pixel.Run();
    EXPECT_FALSE(pixel.Free().ground);
    EXPECT_TRUE(EchoAt(pixel.frame, 0, 0).ground);
  }
}

TEST(GroundPlaneStageLimits, ARayMeetsThePlaneFromASlantOfTenToTheMinusEight) {
  for (const float z : {0.99e-8F, 1.01e-8F}) {
    SheetPixel pixel({1.0F, 0.0F, z}, 3.0F);
    pixel.Run();
    EXPECT_TRUE(pixel.Free().ground);
    EXPECT_EQ(pixel.Free().dist_raw, z < 1e-8F ? 3.0F : 4.0F / z);
  }
}

TEST(GroundPlaneStageLimits, ResidualsAreTakenRayByRayAndThenByRange) {
  // Rough ground, so that the plane is tilted by uneven numbers. Each pixel's own residual as the
  // limit leaves it out, the next number above takes it in.
  LidarFrame rough(6, 20, 2);
  const AngleCalibGrid grid = ground_builder::DownwardGrid(6, 20);
  std::vector<Point3f> points;
  for (int row = 0; row < 6; ++row) {
    for (int col = 0; col < 20; ++col) {
      const Point3f ray = ground_builder::GetDirection(grid, row, col);
      const float d = 1.5F / -ray.z + 0.002F * static_cast<float>((row * 7 + col * 13) % 11 - 5);
      SetEcho(EchoAt(rough, row, col), d);
      EchoAt(rough, row, col).ground = true;
      points.push_back({ray.x * d, ray.y * d, ray.z * d});
    }
  }
  const GroundPlane plane = FitGroundPlaneRobust(points, 0.8F);
  ASSERT_TRUE(plane.valid);
  GroundSettings settings = ground_builder::DefaultSettings();
  settings.plane_col_step = 1;
  for (int row = 0; row < 6; ++row) {
    for (int col = 0; col < 20; ++col) {
      const Point3f ray = ground_builder::GetDirection(grid, row, col);
      const float d = EchoAt(rough, row, col).dist_raw;
      const float residual =
          std::fabs(plane.a * ray.x * d + plane.b * ray.y * d + plane.c * ray.z * d - plane.d);
      for (const float limit : {residual, std::nextafter(residual, 1.0F)}) {
        LidarFrame frame = rough;
        settings.plane_inlier_m = limit;
        LabelGroundByPlane(frame.points, 0, 6, settings, grid);
        EXPECT_EQ(EchoAt(frame, row, col).ground, limit > residual) << row << ' ' << col;
      }
    }
  }
}

// ---- Reflectivity scale ----

// Of a column of two pixels, of which `centre` is the pixel itself.
float Scale(const Point3f (&rays)[2], const float (&distances)[2], int centre) {
  AngleCalibGrid grid = EmptyGrid(4, 3);
  for (int i = 0; i < 2; ++i) SetDirection(grid, 1 + i, 1, rays[i]);
  return EstimateGroundReflScale(distances, 2, 1 + centre, 1, -centre, grid);
}

TEST(GroundReflScaleLimits, AHeadingNeedsADivisorOfTenToTheMinusTwelve) {
  // Points (0, 2, -1) and (x, 3, -2); the divisor is x squared. Ranges 3 and 2.25 at the mean
  // height: slope 4/3, normal (-0.8, 0.6). The heading is along y, or along x when it is not known.
  for (const float x : {0.9e-6F, 1.1e-6F}) {
    const float scale = Scale({{0.0F, 1.0F, -0.5F}, {0.25F * x, 0.75F, -0.5F}}, {2.0F, 4.0F}, 1);
    const double cosine = x > 1e-6F ? 0.75 * 0.8 + 0.5 * 0.6 : 0.5 * 0.6;
    EXPECT_NEAR(scale, std::sqrt(cosine), 1e-5);  // x itself is 1e-6
  }
}

TEST(GroundReflScaleLimits, APointNeedsAHeightOfTenToTheMinusTwelve) {
  // Points (2, 0, -1) and (z, 0, -z): mean height -1/2, ranges there 1 and 1/2, slope -2.
  for (const float z : {0.9e-12F, 1.1e-12F}) {
    const float scale = Scale({{1.0F, 0.0F, -0.5F}, {0.5F, 0.0F, -0.5F}}, {2.0F, 2.0F * z}, 0);
    // The normal is (2, 1) / sqrt(5); one point alone leaves it upright.
    const double cosine = z > 1e-12F ? (2.0 - 0.5) / std::sqrt(5.0) : 0.5;
    EXPECT_NEAR(scale, std::sqrt(cosine), 1e-5);
  }
}

TEST(GroundReflScaleLimits, ASlopeNeedsADivisorOfTenToTheMinusTwelve) {
  // Points (x, 0, -1) and (0, 0, -2): ranges 1.5 x and 0 at the mean height, whose difference
  // squared is the divisor. A slope so steep turns the normal away from the upright ray.
  for (const float range : {0.9e-6F, 1.1e-6F}) {
    const float scale = Scale({{range / 1.5F, 0.0F, -1.0F}, {0.0F, 0.0F, -1.0F}}, {1.0F, 2.0F}, 1);
    EXPECT_EQ(scale, range > 1e-6F ? 0.4F : 1.0F);
  }
}

}  // namespace
}  // namespace kerul::lidar
