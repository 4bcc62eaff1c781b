// Every form of the packet's calibration against the steps in turn, bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"

namespace kerul::lidar {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

class Numbers {
 public:
  explicit Numbers(std::uint32_t seed) : engine_(seed) {}
  bool Chance(double share) { return std::bernoulli_distribution(share)(engine_); }
  int Whole(int from, int to) { return std::uniform_int_distribution<int>(from, to)(engine_); }
  float Between(float from, float to) {
    return std::uniform_real_distribution<float>(from, to)(engine_);
  }
  // Now and then one of the odd values.
  float Odd(float from, float to) {
    static constexpr float kOdd[] = {0.0F,        -0.0F,      kNan,  kInf,   -kInf,  -1.0F,
                                     1e-40F,      -1e-40F,    3e38F, -3e38F, 510.0F, 511.0F,
                                     512.0F,      -0.5F,      0.3F,  3.0F,   9.9F,   9.900001F,
                                     0.29999998F, 2.9999998F, 1e30F, 0.004F};
    if (Chance(0.1)) return kOdd[Whole(0, static_cast<int>(std::size(kOdd)) - 1)];
    return Between(from, to);
  }
  std::vector<float> Table(std::size_t entries, float from, float to) {
    std::vector<float> table(entries);
    for (float& entry : table) entry = Between(from, to);
    return table;
  }

 private:
  std::mt19937 engine_;
};

std::vector<LidarPoint> RandomPoints(Numbers& random, int count) {
  std::vector<LidarPoint> points(static_cast<std::size_t>(count));
  const double valid = random.Between(0.0F, 1.0F);
  for (LidarPoint& point : points) {
    point.row = random.Chance(0.05) ? random.Whole(-700, 70000) : random.Whole(0, 215);
    point.col = random.Chance(0.05) ? random.Whole(-700, 70000) : random.Whole(0, 287);
    for (LidarEcho& echo : point.echoes) {
      if (random.Chance(valid)) echo.dist_raw = random.Odd(0.01F, 20.0F);
      echo.cogh = random.Odd(0.0F, 600.0F);
      echo.noise = random.Odd(0.0F, 1100.0F);
      echo.change_noise_noise_append = random.Chance(0.3) ? random.Odd(0.0F, 40.0F) : 0.0F;
      echo.cogw_flag = random.Whole(0, 7);
      echo.waveform_rms_ratio = random.Odd(0.5F, 1.1F);
      echo.highRefl = random.Chance(0.1);
      echo.afterPulse = random.Chance(0.1);
      echo.refl_raw = random.Between(0.0F, 300.0F);
      echo.power = random.Odd(0.0F, 300.0F);
    }
    // Half of the time where the rules look.
    if (random.Chance(0.5)) {
      point.echoes[0].dist_raw = random.Between(0.5F, 9.0F);
      point.echoes[0].cogh = random.Between(150.0F, 300.0F);
      point.echoes[1].dist_raw = point.echoes[0].dist_raw * random.Between(1.0F, 2.2F);
      point.echoes[1].cogh = random.Between(0.0F, 60.0F);
    }
  }
  return points;
}

HighReflCheck UsualCheck() {
  HighReflCheck check;
  check.enable = true;
  check.rule_a_enable = check.rule_b_enable = check.rule_c_enable = check.rule_d_enable = true;
  check.rule_a_height = 255.0F;
  check.rule_a_range = {0.8F, 5.0F};
  check.rule_a_gap = {1.0F, 8.0F};
  check.rule_a_height2 = {12.0F, 512.0F};
  check.rule_a_range_on = check.rule_a_gap_on = check.rule_a_height2_on = true;
  check.rule_b_height = 253.0F;
  check.rule_b_range = {2.7F, 7.0F};
  check.rule_b_range_on = true;
  check.rule_b_double_tol = 0.6F;
  check.rule_c_height = 250.0F;
  check.rule_c_range = {7.0F, 50.0F};
  check.rule_c_range_on = true;
  check.rule_d_height = 170.0F;
  check.rule_d_gap = {1.0F, 2.5F};
  check.rule_d_height2 = {0.0F, 20.0F};
  check.rule_d_gap_on = check.rule_d_height2_on = true;
  return check;
}

// Random objects for the steps; each may be missing.
struct Objects {
  std::optional<EnvCalib> env;
  std::optional<DistCalib> dist;
  std::optional<HighThresholdMap> map;
  std::optional<HighReflCheck> check;
  std::optional<RetroCalib> retro;

  CalibrationSteps Steps() const {
    const auto pointer = [](const auto& object) { return object ? &*object : nullptr; };
    return {pointer(env), pointer(dist), pointer(map), pointer(check), pointer(retro)};
  }
};

std::vector<float> PixelTable(Numbers& random, float from, float to) {
  std::vector<float> table = random.Table(kPixelTableEntries, from, to);
  for (std::size_t i = 0; i < table.size(); i += static_cast<std::size_t>(random.Whole(1, 60))) {
    table[i] = 0.0F;
  }
  return table;
}

std::vector<float> Curve(Numbers& random, float from, float to) {
  std::vector<float> curve = random.Table(kCurveEntries, from, to);
  if (random.Chance(0.3)) curve.front() = -0.0F;
  if (random.Chance(0.3)) curve.back() = -0.0F;
  if (random.Chance(0.2)) curve.front() = kInf;
  if (random.Chance(0.2)) curve.back() = kInf;
  return curve;
}

void AddRetro(Numbers& random, Objects& objects) {
  HighReflCheck check = UsualCheck();
  check.near_refl_enable = random.Chance(0.5);
  check.near_refl_range = random.Between(0.5F, 5.0F);
  // Some tables of a size that switches them off.
  const std::size_t efficiant = random.Chance(0.7) ? 600 : 0;
  const std::size_t filter = random.Chance(0.5) ? 31 : 30;
  const float spread = random.Chance(0.2) ? 400.0F : 8.0F;
  objects.retro.emplace(Curve(random, -spread, spread), PixelTable(random, -4.0F, 4.0F), check,
                        random.Table(efficiant, 1.0F, 3.0F), random.Table(filter, 0.0F, 120.0F));
  if (random.Chance(0.2)) objects.retro->ref_distance = random.Between(0.01F, 10.0F);
}

Objects RandomObjects(Numbers& random) {
  Objects objects;
  if (random.Chance(0.8)) {
    const auto low = static_cast<std::size_t>(random.Whole(1, 1024));
    const auto high = static_cast<std::size_t>(random.Whole(1, 1024));
    const std::size_t cogt = random.Chance(0.5) ? 4 : 0;
    objects.env.emplace(random.Table(low, -0.5F, 0.5F), random.Table(high, -0.5F, 0.5F),
                        random.Table(cogt, -0.02F, 0.02F), random.Between(0.0F, 30.0F));
  }
  if (random.Chance(0.8)) {
    std::vector<float> high;
    if (random.Chance(0.5)) high = Curve(random, -50.0F, 50.0F);
    objects.dist.emplace(Curve(random, -50.0F, 50.0F), PixelTable(random, -60.0F, 60.0F), high);
  }
  if (random.Chance(0.8)) {
    std::vector<float> in = random.Table(static_cast<std::size_t>(random.Whole(2, 510)), 0, 600);
    std::sort(in.begin(), in.end());
    const std::vector<float> out = random.Table(in.size(), 0.0F, 400.0F);
    objects.map.emplace(in, out);
  }
  if (random.Chance(0.8)) {
    objects.check = UsualCheck();
    objects.check->enable = random.Chance(0.9);
    objects.check->rule_a_enable = random.Chance(0.8);
    objects.check->rule_d_enable = random.Chance(0.8);
    if (random.Chance(0.1)) objects.check->rule_b_height = kNan;
  }
  if (random.Chance(0.8)) AddRetro(random, objects);
  return objects;
}

class PacketCalibrationLanes : public FormsTest {
 protected:
  PacketCalibrationLanes() { LidarPoint::echo_num = 2; }
  ~PacketCalibrationLanes() override { LidarPoint::echo_num = 1; }

  // `calibrator` has these objects. Counts the points that were compared.
  void ExpectLikeTheSteps(const Objects& objects, const PacketCalibrator& calibrator,
                          const std::vector<LidarPoint>& points) {
    std::vector<LidarPoint> expected = points;
    CalibratePacket(objects.Steps(), expected);
    std::vector<LidarPoint> got = points;
    calibrator.Calibrate(got);
    ASSERT_EQ(got.size(), expected.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
      ASSERT_EQ(testing::PointDifference(got[i], expected[i]), "") << "point " << i;
      ++compared_;
    }
  }

  void ExpectLikeTheSteps(const Objects& objects, const std::vector<LidarPoint>& points) {
    ExpectLikeTheSteps(objects, PacketCalibrator(objects.Steps()), points);
  }

  int compared_ = 0;
};
RUN_IN_EVERY_VECTOR_FORM(PacketCalibrationLanes);

TEST_P(PacketCalibrationLanes, LeaveWhatTheStepsLeave) {
  Numbers random(1);
  for (int objects_round = 0; objects_round < 60; ++objects_round) {
    const Objects objects = RandomObjects(random);
    const PacketCalibrator calibrator(objects.Steps());
    LidarPoint::echo_num = random.Whole(1, 2);
    for (int packet = 0; packet < 40; ++packet) {
      ASSERT_NO_FATAL_FAILURE(ExpectLikeTheSteps(objects, calibrator, RandomPoints(random, 9)));
    }
  }
  EXPECT_EQ(compared_, 60 * 40 * 9);
}

TEST_P(PacketCalibrationLanes, AnyNumberOfPointsIsCalibrated) {
  Numbers random(2);
  Objects objects;
  while (!objects.env || !objects.dist || !objects.retro) objects = RandomObjects(random);
  for (int count = 0; count < 70; ++count) {
    ASSERT_NO_FATAL_FAILURE(ExpectLikeTheSteps(objects, RandomPoints(random, count)));
  }
  EXPECT_GT(compared_, 2000);
}

// One echo with a range in a packet of empty ones, in every slot.
TEST_P(PacketCalibrationLanes, TheOnlyEchoIsFoundWhereverItStands) {
  Numbers random(3);
  Objects objects;
  while (!objects.env || !objects.dist || !objects.retro) objects = RandomObjects(random);
  for (int place = 0; place < 18; ++place) {
    std::vector<LidarPoint> points(9);
    for (LidarPoint& point : points) point.col = 7 * place;
    LidarEcho& echo = points[static_cast<std::size_t>(place / 2)].echoes[place % 2];
    echo.dist_raw = 5.0F;
    echo.cogh = 60.0F;
    ASSERT_NO_FATAL_FAILURE(ExpectLikeTheSteps(objects, points));
  }
  EXPECT_GT(compared_, 0);
}

// Heights around each rule's limit, the lowest of all in particular.
TEST_P(PacketCalibrationLanes, RulesHoldFromTheFirstHeightAboveTheirLimit) {
  Objects objects;
  objects.check = UsualCheck();
  int after_pulses = 0;
  for (const float limit : {170.0F, 250.0F, 253.0F, 255.0F}) {
    for (const float height : {std::nextafter(limit, 0.0F), limit, std::nextafter(limit, 999.0F)}) {
      std::vector<LidarPoint> points(3);
      points[0].echoes[0] = {.dist_raw = 3.0F, .cogh = height};
      points[0].echoes[1] = {.dist_raw = 4.5F, .cogh = 10.0F};
      points[1].echoes[0] = {.dist_raw = 3.0F, .cogh = height};
      points[1].echoes[1] = {.dist_raw = 6.2F, .cogh = 30.0F};
      points[2].echoes[0] = {.dist_raw = 8.0F, .cogh = height, .highRefl = height > 251.0F};
      points[2].echoes[1] = {.dist_raw = 8.5F, .cogh = 10.0F};
      ASSERT_NO_FATAL_FAILURE(ExpectLikeTheSteps(objects, points));
      CheckHighReflectivity(*objects.check, points);
      for (const LidarPoint& point : points) after_pulses += point.echoes[1].afterPulse;
    }
  }
  EXPECT_GT(after_pulses, 6);
  EXPECT_GT(compared_, 0);
}

// Every pixel has an offset and a scale of its own.
Objects ObjectsThatTellPixelsApart() {
  std::vector<float> offset(kPixelTableEntries);
  std::vector<float> scale(kPixelTableEntries);
  for (std::size_t i = 0; i < offset.size(); ++i) {
    offset[i] = static_cast<float>(i + 1);
    scale[i] = 1e-4F * static_cast<float>(i + 1);
  }
  Objects objects;
  objects.dist.emplace(std::vector<float>(512), offset, std::vector<float>());
  objects.retro.emplace(std::vector<float>(512, -12.0F), scale, HighReflCheck{},
                        std::vector<float>(), std::vector<float>());
  return objects;
}

TEST_P(PacketCalibrationLanes, EveryPixelInsideAndOutsideTakesItsOwnEntries) {
  const Objects objects = ObjectsThatTellPixelsApart();
  std::vector<int> places = {-70000, -289, -288, 575, 576, 1535, 1850, 70000};
  for (int place = -13; place < 302; ++place) places.push_back(place);
  std::vector<LidarPoint> points;
  for (const int row : places) {
    for (const int col : places) {
      LidarPoint& point = points.emplace_back();
      point.row = row;
      point.col = col;
      point.echoes[0].dist_raw = 250.0F;
    }
  }
  ASSERT_NO_FATAL_FAILURE(ExpectLikeTheSteps(objects, points));
  EXPECT_EQ(compared_, static_cast<int>(points.size()));
  // Every entry gives another range: the largest offset takes 194 m, the next 0.0023 m less.
  std::set<float> ranges;
  CalibratePacket(objects.Steps(), points);
  for (const LidarPoint& point : points) ranges.insert(point.echoes[0].dist_raw);
  EXPECT_EQ(ranges.size(), 288U * 288U);
}

// A packet's nine stand side by side: 1728 pixels to a miniflash row, 432 ids to a slot.
TEST(NearestPixelEntry, RunsThroughGroupsSlotsAndPixelIds) {
  int expected = 0;
  for (int group = 0; group < 48; ++group) {
    for (int slot = 0; slot < 4; ++slot) {
      for (int id = 0; id < 432; ++id) {
        const PixelPlace place = PlacePixel(id, group, slot, 6, 6);
        ASSERT_EQ(NearestPixelEntry(place.row, place.col), expected)
            << "group " << group << " slot " << slot << " id " << id;
        ++expected;
      }
    }
  }
  EXPECT_EQ(expected, kPixelTableEntries);
}

// By hand: tile order counts on past the last column and row, and stops at its ends.
TEST(NearestPixelEntry, APixelOutsideTakesThePlaceOfAnotherOne) {
  EXPECT_EQ(NearestPixelEntry(0, 288), NearestPixelEntry(6, 0));  // the next tile's first
  EXPECT_EQ(NearestPixelEntry(7, 289), NearestPixelEntry(13, 1));
  EXPECT_EQ(NearestPixelEntry(288, 0), NearestPixelEntry(287, 287));
  EXPECT_EQ(NearestPixelEntry(1535, 1850), NearestPixelEntry(287, 287));
  EXPECT_EQ(NearestPixelEntry(-6, 0), NearestPixelEntry(0, 0));
  EXPECT_EQ(NearestPixelEntry(0, -1), NearestPixelEntry(0, 0));
  EXPECT_EQ(NearestPixelEntry(-3, 5), NearestPixelEntry(3, 4));  // 5 * 6 - 3 = 4 * 6 + 3
}

TEST_P(PacketCalibrationLanes, WithoutAnyStepNothingChanges) {
  Numbers random(5);
  LidarPoint::echo_num = 2;
  for (int packet = 0; packet < 20; ++packet) {
    const std::vector<LidarPoint> points = RandomPoints(random, 9);
    ASSERT_NO_FATAL_FAILURE(ExpectLikeTheSteps(Objects{}, points));
  }
  EXPECT_GT(compared_, 0);
}

}  // namespace
}  // namespace kerul::lidar
