// Ground labelling, the plane fit and the incidence factor against the reference.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "MIPI_reader/node/ground/ground_labelling.h"
#include "MIPI_reader/node/ground/ground_plane.h"
#include "MIPI_reader/node/ground/ground_refl_scale.h"
#include "pass_comparison.h"
#include "reference/ground.h"
#include "reference/plane.h"

namespace kerul::lidar::testing {
namespace {

GroundSettings RandomSettings(RandomRecords& random) {
  const auto flip = [&] { return random.Chance(0.5); };
  GroundSettings settings;
  settings.vert_seed_enable = flip();
  settings.plane_enable = flip();
  settings.smooth_enable = flip();
  settings.vert_span_ratio = random.Uniform(0.0F, 0.06F);
  settings.vert_span_max = random.Uniform(0.0F, 0.5F);
  settings.mean_diff_ratio = random.Uniform(0.02F, 0.2F);
  settings.mean_diff_max = random.Uniform(0.1F, 1.0F);
  settings.max_diff_ratio = random.Uniform(0.02F, 0.3F);
  settings.max_diff_max = random.Uniform(0.1F, 1.0F);
  settings.min_dist =
      random.Table(static_cast<std::size_t>(random.Below(6)), 0.3F, 8.0F, flip() ? 0.1 : 0.0);
  settings.plane_min_points = random.Between(0, 120);
  settings.plane_keep_ratio = random.Salted(0.3F, 1.1F, 0.1);
  settings.plane_inlier_m = random.Salted(0.01F, 0.5F);
  settings.plane_pull = random.Salted(0.0F, 1.2F);
  settings.plane_pull_full_m = random.Salted(0.0F, 0.5F);
  settings.plane_pull_zero_m = random.Salted(0.2F, 1.0F);
  settings.plane_col_step = random.Between(-1, 5);
  settings.plane_max_points = random.Between(0, 500);
  return settings;
}

float ToSixteenths(float value) { return std::round(value * 16.0F) / 16.0F; }

// Ranges and gates in sixteenths of a metre, so that many differences equal a gate. Only the
// absolute gates have a say.
void MakeTies(RandomRecords& random, LidarFrame& frame, GroundSettings& settings) {
  for (std::vector<LidarPoint>& row : frame.points) {
    for (LidarPoint& point : row) {
      point.echoes[0].dist_raw = ToSixteenths(point.echoes[0].dist_raw);
    }
  }
  settings.vert_span_ratio = settings.mean_diff_ratio = settings.max_diff_ratio = 10.0F;
  settings.vert_span_max = ToSixteenths(random.Uniform(0.0F, 1.0F));
  settings.mean_diff_max = ToSixteenths(random.Uniform(0.1F, 0.5F));
  settings.max_diff_max = ToSixteenths(random.Uniform(0.1F, 0.5F));
  for (float& distance : settings.min_dist) distance = ToSixteenths(distance);
}

TEST(GroundPass, IsTheReferencesUnderEverySetting) {
  RandomRecords random(41);
  PassTally tally;
  int labelled = 0;
  while (tally.rows < 2000 && !::testing::Test::HasFailure()) {
    random.StartRound();
    const FrameStyle style = random.Chance(0.7) ? FrameStyle::kSurface : random.Style();
    const int width = random.Chance(0.2) ? random.Between(1, 30) : random.Between(40, 150);
    LidarFrame before = random.Frame(6 * random.Between(1, 20), width, random.Between(1, 2), style);
    GroundSettings settings = RandomSettings(random);
    if (random.Chance(0.3)) MakeTies(random, before, settings);
    AngleCalibGrid grid;
    if (random.Chance(0.8)) {
      grid = random.AngleGrid(random.Chance(0.8) ? before.height : random.Between(1, 40),
                              random.Chance(0.8) ? width : random.Between(1, 40),
                              random.Chance(0.3) ? 0.01 : 0.0);
    }
    ComparePass(
        random, before,
        [&](LidarFrame& frame, int m_row) {
          LabelGround(frame, m_row, 6, settings, grid);
          for (const LidarPoint& point : frame.points[static_cast<std::size_t>(m_row * 6 + 3)]) {
            labelled += point.echoes[0].ground ? 1 : 0;
          }
        },
        [&](LidarFrame& frame, int m_row) { reference::Ground(frame, m_row, settings, grid); },
        tally);
  }
  EXPECT_GT(tally.changed, 10000);
  EXPECT_GT(labelled, 1000);
}

std::vector<Point3f> RandomCloud(RandomRecords& random) {
  std::vector<Point3f> points(static_cast<std::size_t>(random.Below(60)));
  const float slope_x = random.Uniform(-1.0F, 1.0F);
  const float slope_y = random.Uniform(-1.0F, 1.0F);
  const float noise = random.Chance(0.3) ? 0.0F : random.Uniform(0.0F, 0.5F);
  const double salt = random.Chance(0.3) ? 0.05 : 0.0;
  for (Point3f& point : points) {
    point.x = random.Salted(-20.0F, 20.0F, salt);
    point.y = random.Chance(0.05) ? point.x : random.Salted(-20.0F, 20.0F, salt);
    point.z = slope_x * point.x + slope_y * point.y + random.Uniform(-noise, noise);
  }
  return points;
}

void ExpectSamePlane(const GroundPlane& plane, const GroundPlane& expected) {
  FieldComparison c;
  c.Float("a", plane.a, expected.a);
  c.Float("b", plane.b, expected.b);
  c.Float("c", plane.c, expected.c);
  c.Float("d", plane.d, expected.d);
  c.Integer("valid", plane.valid, expected.valid);
  EXPECT_EQ(c.text(), "");
}

TEST(GroundPass, PlaneFitsAreTheReferences) {
  RandomRecords random(42);
  int valid = 0;
  for (int i = 0; i < 20000 && !::testing::Test::HasFailure(); ++i) {
    random.StartRound();
    const std::vector<Point3f> points = RandomCloud(random);
    const float keep_ratio = random.Salted(0.3F, 1.1F, 0.1);
    ExpectSamePlane(ground_plane_detail::FitPlaneFromPoints(points), reference::FitPlane(points));
    const GroundPlane plane = FitGroundPlaneRobust(points, keep_ratio);
    ExpectSamePlane(plane, reference::FitPlaneRobust(points, keep_ratio));
    valid += plane.valid ? 1 : 0;
  }
  EXPECT_GT(valid, 10000);
}

TEST(GroundPass, IncidenceFactorIsTheReferences) {
  RandomRecords random(43);
  int below_one = 0;
  for (int round = 0; round < 200; ++round) {
    random.StartRound();
    const AngleCalibGrid grid = random.AngleGrid(random.Between(1, 60), random.Between(1, 20),
                                                 random.Chance(0.5) ? 0.02 : 0.0);
    for (int i = 0; i < 500; ++i) {
      float distances[5];
      float distance = random.Uniform(0.5F, 20.0F);
      for (float& entry : distances) {
        entry = random.Chance(0.02) ? random.EdgeValue() : distance;
        distance += random.Uniform(-0.01F, 0.4F);
      }
      const int count = random.Below(6);
      const int row = random.Between(-3, grid.rows + 3);
      const int col = random.Between(-3, grid.cols + 3);
      const int first_offset = random.Between(-2, 0);
      const float scale = EstimateGroundReflScale(distances, count, row, col, first_offset, grid);
      const float expected =
          reference::ProcessGroundVertSeed(distances, count, row, col, first_offset, grid);
      ASSERT_TRUE(SameValue(scale, expected)) << scale << ", expected " << expected;
      below_one += scale < 1.0F ? 1 : 0;
    }
  }
  EXPECT_GT(below_one, 10000);
}

}  // namespace
}  // namespace kerul::lidar::testing
