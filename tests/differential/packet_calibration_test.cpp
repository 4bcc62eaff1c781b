// The steps that every packet's points go through, each alone, against the reference.
#include "MIPI_reader/node/point_calibration/packet_calibration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "config/default_config.h"
#include "reference/packet_calibration.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"
#include "support/random_records.h"

namespace kerul::lidar::testing {
namespace {

constexpr int kRounds = 300;
constexpr int kPointsPerRound = 100;

// Plausible points, points with edge values, points of any bits; some outside the grid.
std::vector<LidarPoint> RandomPoints(RandomRecords& random) {
  LidarPoint::echo_num = random.Between(1, 2);
  std::vector<LidarPoint> points(kPointsPerRound);
  for (LidarPoint& point : points) {
    point = random.Chance(0.2) ? random.WildPoint() : random.Point(random.Chance(0.5) ? 0.1 : 0.0);
    if (!random.Chance(0.05)) continue;
    point.row = random.Below(1540);
    point.col = random.Below(1900);
  }
  return points;
}

// Both sides work on copies of the same points; the number of echoes that the step changed.
template <typename NodeStep, typename ReferenceStep>
int Compare(const std::vector<LidarPoint>& before, NodeStep node_step,
            ReferenceStep reference_step) {
  std::vector<LidarPoint> points = before;
  std::vector<LidarPoint> expected = before;
  node_step(points);
  reference_step(expected);
  int changed = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    EXPECT_EQ(PointDifference(points[i], expected[i]), "") << "point " << i;
    for (int slot = 0; slot < kEchoSlots; ++slot) {
      if (!EchoDifference(points[i].echoes[slot], before[i].echoes[slot]).empty()) ++changed;
    }
  }
  return changed;
}

reference::EnvironmentTables RandomEnvironment(RandomRecords& random) {
  const DefaultTables& defaults = default_config::kConfig.tables;
  reference::EnvironmentTables tables{defaults.env_cogh, defaults.env_cogh_high, {}, 15.0F};
  if (random.Chance(0.5)) {
    const double salt = random.Chance(0.5) ? 0.05 : 0.0;
    const auto entries = static_cast<std::size_t>(random.Chance(0.7) ? 1024 : 1);
    tables.env_cogh = random.Table(entries, 0.0F, 2.0F, salt);
    tables.env_cogh_high = random.Table(entries, 0.0F, 2.0F, salt);
    tables.bias = random.Salted(-20.0F, 20.0F);
  }
  if (random.Chance(0.5)) tables.env_cogt = random.Table(4, -3.0F, 3.0F, 0.05);
  return tables;
}

TEST(PacketCalibration, CompensationForTheEnvironmentIsTheReferences) {
  RandomRecords random(21);
  int changed = 0;
  for (int round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
    random.StartRound();
    const reference::EnvironmentTables environment = RandomEnvironment(random);
    const EnvCalib calib(environment.env_cogh, environment.env_cogh_high, environment.env_cogt,
                         environment.bias);
    changed += Compare(
        RandomPoints(random), [&](auto& points) { CompensateEnvironment(calib, points); },
        [&](auto& points) { reference::CompensateForEnvironment(environment, points); });
  }
  EXPECT_GT(changed, kRounds * kPointsPerRound / 2);
}

reference::RangeTables RandomRange(RandomRecords& random) {
  const double salt = random.Chance(0.5) ? 0.05 : 0.0;
  reference::RangeTables tables{
      random.Table(512, -20.0F, 100.0F, salt), random.Table(82944, 1.0F, 255.0F, 0.05), {}};
  if (random.Chance(0.7)) tables.curve_high = random.Table(512, -20.0F, 100.0F, salt);
  return tables;
}

TEST(PacketCalibration, RangeCorrectionIsTheReferences) {
  RandomRecords random(22);
  int changed = 0;
  for (int round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
    random.StartRound();
    const reference::RangeTables tables = RandomRange(random);
    const DistCalib calib(tables.curve, tables.offset, tables.curve_high);
    changed += Compare(
        RandomPoints(random), [&](auto& points) { CalibrateRange(calib, points); },
        [&](auto& points) { reference::CorrectRange(tables, points); });
  }
  EXPECT_GT(changed, kRounds * kPointsPerRound / 2);
}

reference::HeightMapTables RandomHeightMap(RandomRecords& random) {
  const DefaultTables& defaults = default_config::kConfig.tables;
  reference::HeightMapTables tables{defaults.high_threshold_cogh_in,
                                    defaults.high_threshold_cogh_out};
  if (random.Chance(0.4)) return tables;
  const auto entries = static_cast<std::size_t>(random.Between(2, 40));
  float height = random.Uniform(-10.0F, 100.0F);
  tables.cogh_in.resize(entries);
  for (float& entry : tables.cogh_in) {
    entry = height;
    height += random.Chance(0.1) ? 0.0F : random.Uniform(0.0F, 30.0F);
  }
  tables.cogh_out = random.Table(entries, 0.0F, 500.0F, 0.05);
  return tables;
}

TEST(PacketCalibration, HeightMapIsTheReferences) {
  RandomRecords random(23);
  int changed = 0;
  for (int round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
    random.StartRound();
    const reference::HeightMapTables tables = RandomHeightMap(random);
    const HighThresholdMap map(tables.cogh_in, tables.cogh_out);
    changed += Compare(
        RandomPoints(random), [&](auto& points) { MapHighThresholdHeights(map, points); },
        [&](auto& points) { reference::MapHeights(tables, points); });
  }
  EXPECT_GT(changed, kRounds * kPointsPerRound / 4);
}

HighReflBand RandomBand(RandomRecords& random, float highest) {
  const float lo = random.Uniform(0.0F, highest);
  return {lo, lo + random.Uniform(0.0F, highest)};
}

// Rules that random points meet now and then: heights up to 600, ranges up to 50 m.
HighReflCheck RandomCheck(RandomRecords& random) {
  if (random.Chance(0.3)) return default_config::kConfig.high_refl_check;
  HighReflCheck check;
  const auto flip = [&] { return random.Chance(0.6); };
  check.enable = true;
  check.rule_a_enable = flip();
  check.rule_a_height = random.Uniform(0.0F, 400.0F);
  check.rule_a_range = RandomBand(random, 50.0F);
  check.rule_a_range_on = flip();
  check.rule_a_gap = RandomBand(random, 30.0F);
  check.rule_a_gap_on = flip();
  check.rule_a_height2_low = RandomBand(random, 300.0F);
  check.rule_a_height2_low_on = flip();
  check.rule_a_height2 = RandomBand(random, 400.0F);
  check.rule_a_height2_on = flip();
  check.rule_a_height2_rms = RandomBand(random, 400.0F);
  check.rule_a_rms_on = flip();
  check.rule_a_rms = RandomBand(random, 0.8F);
  check.rule_a_rms_gate = flip();
  check.rule_b_enable = flip();
  check.rule_b_height = random.Uniform(0.0F, 400.0F);
  check.rule_b_range = RandomBand(random, 30.0F);
  check.rule_b_range_on = flip();
  check.rule_b_double_tol = random.Uniform(0.0F, 10.0F);
  check.rule_c_enable = flip();
  check.rule_c_height = random.Uniform(100.0F, 500.0F);
  check.rule_c_range = RandomBand(random, 30.0F);
  check.rule_c_range_on = flip();
  check.rule_d_enable = flip();
  check.rule_d_height = random.Uniform(0.0F, 400.0F);
  check.rule_d_gap = RandomBand(random, 20.0F);
  check.rule_d_gap_on = flip();
  check.rule_d_height2 = RandomBand(random, 400.0F);
  check.rule_d_height2_on = flip();
  check.near_refl_enable = flip();
  check.near_refl_range = random.Uniform(0.0F, 30.0F);
  return check;
}

TEST(PacketCalibration, HighReflectivityRulesAreTheReferences) {
  RandomRecords random(24);
  int changed = 0;
  for (int round = 0; round < 2 * kRounds && !::testing::Test::HasFailure(); ++round) {
    random.StartRound();
    const HighReflCheck check = RandomCheck(random);
    std::vector<LidarPoint> points = RandomPoints(random);
    for (LidarPoint& point : points) {
      // Second echoes at twice the range, and just beyond the first.
      if (random.Chance(0.2)) point.echoes[1].dist_raw = 2.0F * point.echoes[0].dist_raw;
      if (random.Chance(0.2)) point.echoes[1].dist_raw = point.echoes[0].dist_raw + 2.0F;
    }
    changed += Compare(
        points, [&](auto& some) { CheckHighReflectivity(check, some); },
        [&](auto& some) { reference::CheckHighRefl(check, some); });
  }
  EXPECT_GT(changed, kRounds * kPointsPerRound / 10);
}

reference::ReflectivityTables RandomReflectivity(RandomRecords& random) {
  const double salt = random.Chance(0.5) ? 0.05 : 0.0;
  reference::ReflectivityTables tables;
  tables.retro_curve = random.Table(512, -2.0F, 12.0F, salt);
  tables.retro_scale = random.Table(82944, 1.0F, 10.0F, 0.05);
  tables.high_refl_check = RandomCheck(random);
  if (random.Chance(0.7)) tables.cogh_efficiant = default_config::kConfig.tables.cogh_efficiant;
  if (random.Chance(0.2)) tables.cogh_efficiant = random.Table(600, 0.0F, 4.0F, 0.05);
  if (random.Chance(0.5)) tables.retro_filter = random.Table(31, 0.0F, 30.0F, salt);
  return tables;
}

// Some are near, where further tables apply.
std::vector<LidarPoint> RandomNearPoints(RandomRecords& random) {
  std::vector<LidarPoint> points = RandomPoints(random);
  for (LidarPoint& point : points) {
    if (random.Chance(0.4)) point.echoes[0].dist_raw = random.Uniform(0.0F, 12.0F);
  }
  return points;
}

RetroCalib MakeRetroCalib(const reference::ReflectivityTables& tables) {
  return {tables.retro_curve, tables.retro_scale, tables.high_refl_check, tables.cogh_efficiant,
          tables.retro_filter};
}

TEST(PacketCalibration, ReflectivityIsTheReferences) {
  RandomRecords random(25);
  int changed = 0;
  for (int round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
    random.StartRound();
    const reference::ReflectivityTables tables = RandomReflectivity(random);
    const RetroCalib calib = MakeRetroCalib(tables);
    changed += Compare(
        RandomNearPoints(random), [&](auto& points) { calib.calib_points(points); },
        [&](auto& points) { reference::CalibrateReflectivity(tables, points); });
  }
  EXPECT_GT(changed, kRounds * kPointsPerRound / 2);
}

// All steps of a packet in one call, in every form, steps left out at random.
TEST(PacketCalibration, AllStepsTogetherAreTheReferencesStepsInTheirOrder) {
  RandomRecords random(26);
  FormsInTurn forms;
  int changed = 0;
  for (int round = 0; round < 2 * kRounds && !::testing::Test::HasFailure(); ++round) {
    random.StartRound();
    const reference::EnvironmentTables environment = RandomEnvironment(random);
    const reference::RangeTables range = RandomRange(random);
    const reference::HeightMapTables heights = RandomHeightMap(random);
    const reference::ReflectivityTables reflectivity = RandomReflectivity(random);
    const HighReflCheck check = RandomCheck(random);
    const EnvCalib env(environment.env_cogh, environment.env_cogh_high, environment.env_cogt,
                       environment.bias);
    const DistCalib dist(range.curve, range.offset, range.curve_high);
    const HighThresholdMap map(heights.cogh_in, heights.cogh_out);
    const RetroCalib retro = MakeRetroCalib(reflectivity);
    const auto chosen = [&](const auto& step) { return random.Chance(0.9) ? &step : nullptr; };
    const CalibrationSteps steps{.env = chosen(env),
                                 .dist = chosen(dist),
                                 .high_threshold_map = chosen(map),
                                 .high_refl_check = chosen(check),
                                 .retro = chosen(retro)};
    const PacketCalibrator calibrator(steps);
    for (int packet = 0; packet < 4; ++packet) {
      forms.Next();
      std::vector<LidarPoint> points = RandomNearPoints(random);
      if (random.Chance(0.8)) points.resize(9);
      changed += Compare(
          points, [&](auto& some) { calibrator.Calibrate(some); },
          [&](auto& some) {
            if (steps.env != nullptr) reference::CompensateForEnvironment(environment, some);
            if (steps.dist != nullptr) reference::CorrectRange(range, some);
            if (steps.high_threshold_map != nullptr) reference::MapHeights(heights, some);
            if (steps.high_refl_check != nullptr) reference::CheckHighRefl(check, some);
            if (steps.retro != nullptr) reference::CalibrateReflectivity(reflectivity, some);
          });
    }
  }
  EXPECT_GT(changed, kRounds * kPointsPerRound / 2);
}

}  // namespace
}  // namespace kerul::lidar::testing
