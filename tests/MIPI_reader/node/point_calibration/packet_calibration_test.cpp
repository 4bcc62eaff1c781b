#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/packet_calibrator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

constexpr std::int32_t kHigh = 2;  // bit 1 of cogw_flag: the high width is valid

// Message of the runtime_error that `build` throws, or "" without one.
template <typename Build>
std::string ErrorOf(Build build) {
  try {
    build();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

class PacketCalibrationTest : public FormsTest {
 protected:
  PacketCalibrationTest() : points(1) {
    LidarPoint::echo_num = 2;
    Echo().dist_raw = 10.0F;
    Echo().cogh = 20.0F;
  }
  ~PacketCalibrationTest() override { LidarPoint::echo_num = 1; }

  LidarEcho& Echo(int slot = 0) { return points[0].echoes[slot]; }
  void Calibrate(const CalibrationSteps& steps) { PacketCalibrator(steps).Calibrate(points); }

  std::vector<LidarPoint> points;
};

TEST(TileOrderIndex, RunsTileByTileAndColumnByColumn) {
  EXPECT_EQ(TileOrderIndex(0, 0), 0);
  EXPECT_EQ(TileOrderIndex(1, 0), 1);
  EXPECT_EQ(TileOrderIndex(0, 1), 6);
  EXPECT_EQ(TileOrderIndex(5, 5), 35);
  EXPECT_EQ(TileOrderIndex(0, 6), 36);
  EXPECT_EQ(TileOrderIndex(6, 0), 48 * 36);
  EXPECT_EQ(TileOrderIndex(215, 287), 62207);
  std::set<int> seen;
  for (int row = 0; row < 216; ++row) {
    for (int col = 0; col < 288; ++col) seen.insert(TileOrderIndex(row, col));
  }
  EXPECT_EQ(seen.size(), 62208U);
  EXPECT_EQ(*seen.rbegin(), 62207);
}

TEST(PixelTableEntry, TakesTheNearestEntryForPixelsOutside) {
  const std::vector<float> table = {1.0F, 2.0F, 3.0F};
  EXPECT_EQ(PixelTableEntry(table, 1, 0), 2.0F);
  EXPECT_EQ(PixelTableEntry(table, 1535, 1800), 3.0F);
  EXPECT_EQ(PixelTableEntry(table, -6, 0), 1.0F);
}

// Environment compensation.

class EnvironmentTest : public PacketCalibrationTest {
 protected:
  EnvironmentTest() : low(1024, 0.0F), high(1024, 0.0F) {}

  void Compensate(const std::vector<float>& polynomial = {}, float bias = 15.0F) {
    const EnvCalib env(low, high, polynomial, bias);
    Calibrate({.env = &env});
  }

  std::vector<float> low;
  std::vector<float> high;
};
RUN_IN_EVERY_FORM(EnvironmentTest);

TEST(EnvCalib, RefusesEmptyHeightTables) {
  EXPECT_EQ(ErrorOf([] { EnvCalib({}, {1.0F}, {}, 0.0F); }), "Invalid env cogh calib data (empty)");
  EXPECT_EQ(ErrorOf([] { EnvCalib({1.0F}, {}, {1.0F}, 0.0F); }),
            "Invalid env cogh calib data (empty)");
}

TEST(EnvCalib, RefusesAPolynomialThatHasNotFourEntries) {
  EXPECT_EQ(ErrorOf([] {
              EnvCalib({1.0F}, {1.0F}, {1.0F, 2.0F, 3.0F}, 0.0F);
            }),
            "Invalid env cogt calib data (expect size 4)");
  EXPECT_EQ(ErrorOf([] { EnvCalib({1.0F}, {1.0F}, std::vector<float>(5), 0.0F); }),
            "Invalid env cogt calib data (expect size 4)");
}

TEST(EnvCalib, AnEmptyPolynomialSwitchesTheRangeCompensationOff) {
  const EnvCalib without({1.0F}, {2.0F}, {}, 15.0F);
  EXPECT_FALSE(without.has_cogt);
  EXPECT_EQ(without.cogt_a, 0.0F);
  EXPECT_EQ(without.cogt_d, 0.0F);
  EXPECT_EQ(without.bias, 15.0F);
  const EnvCalib with({1.0F}, {2.0F}, {1.0F, 2.0F, 3.0F, 4.0F}, 15.0F);
  EXPECT_TRUE(with.has_cogt);
  EXPECT_EQ(with.cogt_a, 1.0F);
  EXPECT_EQ(with.cogt_b, 2.0F);
  EXPECT_EQ(with.cogt_c, 3.0F);
  EXPECT_EQ(with.cogt_d, 4.0F);
}

TEST_P(EnvironmentTest, TheHeightGrowsByTheGainAtTheNoise) {
  low[7] = 0.5F;
  Echo().noise = 7.9F;
  Compensate();
  EXPECT_EQ(Echo().cogh, (15.0F + 20.0F) * 0.5F + 20.0F);
  EXPECT_EQ(Echo().dist_raw, 10.0F);
}

TEST_P(EnvironmentTest, AValidHighWidthTakesTheOtherTable) {
  high[7] = 2.0F;
  Echo().noise = 7.0F;
  Echo().cogw_flag = kHigh;
  Echo(1) = Echo();
  Echo(1).cogw_flag = 5;  // the other bits do not count
  Compensate();
  EXPECT_EQ(Echo().cogh, 90.0F);
  EXPECT_EQ(Echo(1).cogh, 20.0F);
}

TEST_P(EnvironmentTest, NoiseOutsideTheTableTakesTheNearestEntry) {
  low.front() = 1.0F;
  low.back() = 2.0F;
  const auto height = [&](float noise) {
    Echo().cogh = 20.0F;
    Echo().noise = noise;
    Compensate();
    return Echo().cogh;
  };
  EXPECT_EQ(height(1023.9F), 90.0F);
  EXPECT_EQ(height(1024.0F), 90.0F);
  EXPECT_EQ(height(65535.0F), 90.0F);
  EXPECT_EQ(height(2e9F), 90.0F);
  EXPECT_EQ(height(1022.0F), 20.0F);
  EXPECT_EQ(height(0.5F), 55.0F);
  EXPECT_EQ(height(-5.0F), 55.0F);
  // No 32-bit index: the conversion gives the lowest one.
  EXPECT_EQ(height(3e9F), 55.0F);
  EXPECT_EQ(height(INFINITY), 55.0F);
}

TEST_P(EnvironmentTest, AnEmptyEchoKeepsItsHeight) {
  low.assign(1024, 1.0F);
  Echo().dist_raw = 0.0F;
  Echo(1).dist_raw = -1.0F;
  Echo(1).cogh = std::nanf("");
  Compensate();
  EXPECT_EQ(Echo().cogh, 20.0F);
  EXPECT_TRUE(std::isnan(Echo(1).cogh));
}

// It goes on to its reflectivity all the same.
TEST_P(EnvironmentTest, ABrightTargetWithoutARangeKeepsItsHeight) {
  low.assign(1024, 1.0F);
  Echo().dist_raw = 0.0F;
  Echo().highRefl = true;
  const EnvCalib env(low, high, {}, 15.0F);
  const RetroCalib retro(std::vector<float>(512), std::vector<float>(82944, 1.0F), {}, {}, {});
  Calibrate({.env = &env, .retro = &retro});
  EXPECT_EQ(Echo().cogh, 20.0F);
  EXPECT_EQ(Echo().refl_raw, 255.0F);
}

TEST_P(EnvironmentTest, ARangeThatIsNoNumberGoesOn) {
  low.assign(1024, 1.0F);
  Echo().dist_raw = std::nanf("");
  Compensate();
  EXPECT_EQ(Echo().cogh, 55.0F);
}

TEST_P(EnvironmentTest, AHeightOrNoiseThatIsNoNumberClearsTheHeight) {
  Echo().cogh = std::nanf("");
  Echo(1) = LidarEcho{};
  Echo(1).dist_raw = 10.0F;
  Echo(1).cogh = 20.0F;
  Echo(1).noise = std::nanf("");
  Compensate({1.0F, 2.0F, 3.0F, 4.0F});
  EXPECT_EQ(Echo().cogh, 0.0F);
  EXPECT_EQ(Echo(1).cogh, 0.0F);
  EXPECT_EQ(Echo().dist_raw, 10.0F);
  EXPECT_EQ(Echo(1).dist_raw, 10.0F);
}

TEST_P(EnvironmentTest, ThePolynomialMovesTheRange) {
  low[2] = 1.0F;
  Echo().noise = 2.0F;
  // The new height is 55; (55 - 5) * -0.5 * (3 * 2 + 4 + 10) * 0.15 = -75.
  Compensate({0.5F, 5.0F, 3.0F, 10.0F});
  EXPECT_EQ(Echo().dist_raw, 10.0F + 50.0F * -0.5F * 20.0F * 0.15F);
  EXPECT_FLOAT_EQ(Echo().dist_raw, -65.0F);
}

TEST_P(EnvironmentTest, WithOneEchoSlotTheSecondIsLeftAlone) {
  LidarPoint::echo_num = 1;
  low.assign(1024, 1.0F);
  Echo(1).dist_raw = 10.0F;
  Echo(1).cogh = 20.0F;
  Compensate();
  EXPECT_EQ(Echo().cogh, 55.0F);
  EXPECT_EQ(Echo(1).cogh, 20.0F);
}

// Range calibration.

class RangeTest : public PacketCalibrationTest {
 protected:
  RangeTest() : curve(512, 0.0F), offset(82944, 64.0F) {}

  void Calibrate() {
    const DistCalib dist(curve, offset, curve_high);
    PacketCalibrationTest::Calibrate({.dist = &dist});
  }

  // Range after a correction of `correction` 1/64 ns, in the arithmetic of the step.
  static float Corrected(float range, float correction) {
    return range - correction * 0.14989623F * 0.015625F;
  }

  std::vector<float> curve;
  std::vector<float> offset;
  std::vector<float> curve_high;
};
RUN_IN_EVERY_FORM(RangeTest);

TEST(DistCalib, WrongTableSizesArePrintedAndRefused) {
  const std::vector<float> curve(512);
  const std::vector<float> offset(82944);
  const std::string expected = "Invalid dist calib data (expect curve=512, offset=288*288)";
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(ErrorOf([&] { DistCalib(std::vector<float>(511), offset, {}); }), expected);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[INFO] dist_curve.size()=511\n[INFO] dist_offset.size()=82944\n");
  ::testing::internal::CaptureStdout();
  // The first test comes first, even with a wrong third table.
  EXPECT_EQ(ErrorOf([&] { DistCalib(curve, {}, std::vector<float>(3)); }), expected);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[INFO] dist_curve.size()=512\n[INFO] dist_offset.size()=0\n");
}

TEST(DistCalib, AWrongHighCurveIsRefusedByItsSize) {
  const std::vector<float> curve(512);
  const std::vector<float> offset(82944);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(ErrorOf([&] { DistCalib(curve, offset, std::vector<float>(100)); }),
            "Invalid dist curve high vector (expect 512, got 100)");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(DistCalib, TheHighCurveIsOptional) {
  const std::vector<float> curve(512);
  const std::vector<float> offset(82944);
  EXPECT_FALSE(DistCalib(curve, offset, {}).has_curve_high);
  EXPECT_TRUE(DistCalib(curve, offset, curve).has_curve_high);
  const DistCalib calib(curve, offset, {});
  EXPECT_EQ(calib.scale, 0.14989623F);
}

TEST_P(RangeTest, CurveAndOffsetAreTakenOff) {
  curve[20] = 100.0F;
  curve[21] = 200.0F;
  Echo().cogh = 20.25F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 125.0F + 64.0F));
}

TEST_P(RangeTest, TheBaselineRiseCountsWithTheHeight) {
  curve[22] = 100.0F;
  Echo().change_noise_noise_append = 6.0F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 164.0F));
}

TEST_P(RangeTest, TheOffsetIsThePixelsOwn) {
  points[0].row = 7;
  points[0].col = 13;
  offset[static_cast<std::size_t>(((7 / 6) * 48 + 13 / 6) * 36 + 1 * 6 + 1)] = 320.0F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 320.0F));
}

TEST_P(RangeTest, APixelOutsideTheTableTakesTheNearestOffset) {
  offset.back() = 320.0F;
  points[0].row = 1535;
  points[0].col = 1800;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 320.0F));
}

TEST_P(RangeTest, AnUncalibratedPixelLosesAllItsEchoes) {
  offset[0] = 0.0F;
  Echo(1).dist_raw = 5.0F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
  EXPECT_EQ(Echo(1).dist_raw, 0.0F);
  // The steps after it skip it.
  Echo().cogw_flag = kHigh;
  const HighThresholdMap map({1.0F, 2.0F}, {5.0F, 6.0F});
  HighReflCheck check;
  check.enable = check.rule_c_enable = check.rule_c_range_on = true;
  check.rule_c_range = {-1.0F, 50.0F};
  PacketCalibrationTest::Calibrate({.high_threshold_map = &map, .high_refl_check = &check});
  EXPECT_EQ(Echo().cogh, 20.0F);
  EXPECT_FALSE(Echo().highRefl);
}

TEST_P(RangeTest, RangesNotAboveZeroBecomeZero) {
  Echo().dist_raw = -3.0F;
  Echo(1).dist_raw = std::nanf("");
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
  EXPECT_FALSE(std::signbit(Echo().dist_raw));
  EXPECT_EQ(Echo(1).dist_raw, 0.0F);
}

TEST_P(RangeTest, AHeightThatIsNoNumberErasesTheEcho) {
  Echo().cogh = std::nanf("");
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
}

TEST_P(RangeTest, TheHighCurveServesEchoesWithAHighWidth) {
  curve.assign(512, 100.0F);
  curve_high.assign(512, 200.0F);
  Echo().cogw_flag = kHigh;
  Echo(1).dist_raw = 10.0F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 264.0F));
  EXPECT_EQ(Echo(1).dist_raw, Corrected(10.0F, 164.0F));
}

TEST_P(RangeTest, WithoutAHighCurveTheLowOneServesAll) {
  curve.assign(512, 100.0F);
  Echo().cogw_flag = kHigh;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 164.0F));
}

TEST_P(RangeTest, StrongEchoesTakeTheLastCurveEntry) {
  curve[510] = 1000.0F;
  curve[511] = 100.0F;
  for (const float height : {511.0F, 511.5F, 4000.0F, INFINITY}) {
    Echo().dist_raw = 10.0F;
    Echo().cogh = height;
    Calibrate();
    EXPECT_EQ(Echo().dist_raw, Corrected(10.0F, 164.0F));
  }
}

TEST_P(RangeTest, ACorrectionLargerThanTheRangeLeavesFourMillimetres) {
  curve.assign(512, 1e6F);
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.004F);
}

TEST_P(RangeTest, ARangeThatIsCorrectedToZeroStaysZero) {
  Echo().dist_raw = 64.0F * 0.14989623F * 0.015625F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
}

TEST_P(RangeTest, WithOneEchoSlotTheSecondIsLeftAlone) {
  LidarPoint::echo_num = 1;
  Echo(1).dist_raw = -3.0F;
  Calibrate();
  EXPECT_EQ(Echo(1).dist_raw, -3.0F);
}

// High-threshold mapping.

class HeightMapTest : public PacketCalibrationTest {
 protected:
  HeightMapTest() { Echo().cogw_flag = kHigh; }

  float Mapped(float height) {
    Echo().cogh = height;
    const HighThresholdMap map({10.0F, 20.0F, 40.0F}, {1.0F, 3.0F, 13.0F});
    Calibrate({.high_threshold_map = &map});
    return Echo().cogh;
  }
};
RUN_IN_EVERY_FORM(HeightMapTest);

TEST(HighThresholdMap, RefusesShortOrUnequalTables) {
  const std::string expected = "Invalid high-threshold cogh mapping data";
  EXPECT_EQ(ErrorOf([] { HighThresholdMap({1.0F}, {1.0F}); }), expected);
  EXPECT_EQ(ErrorOf([] { HighThresholdMap({}, {}); }), expected);
  EXPECT_EQ(ErrorOf([] { HighThresholdMap({1.0F, 2.0F}, {1.0F, 2.0F, 3.0F}); }), expected);
  EXPECT_EQ(ErrorOf([] { HighThresholdMap({1.0F, 2.0F}, {1.0F, 2.0F}); }), "");
}

TEST_P(HeightMapTest, InterpolatesBetweenTheEntries) {
  EXPECT_EQ(Mapped(15.0F), 2.0F);
  EXPECT_EQ(Mapped(20.0F), 3.0F);
  EXPECT_EQ(Mapped(30.0F), 8.0F);
}

TEST_P(HeightMapTest, TakesTheOuterEntriesAtAndBeyondTheEnds) {
  EXPECT_EQ(Mapped(10.0F), 1.0F);
  EXPECT_EQ(Mapped(-5.0F), 1.0F);
  EXPECT_EQ(Mapped(40.0F), 13.0F);
  EXPECT_EQ(Mapped(INFINITY), 13.0F);
}

TEST_P(HeightMapTest, SkipsEchoesWithoutRangeHighWidthOrHeight) {
  Echo().cogw_flag = 5;
  EXPECT_EQ(Mapped(15.0F), 15.0F);
  Echo().cogw_flag = kHigh;
  EXPECT_TRUE(std::isnan(Mapped(std::nanf(""))));
  Echo().dist_raw = 0.0F;
  EXPECT_EQ(Mapped(15.0F), 15.0F);
  Echo().dist_raw = std::nanf("");
  EXPECT_EQ(Mapped(15.0F), 15.0F);
}

TEST_P(HeightMapTest, WithOneEchoSlotTheSecondIsLeftAlone) {
  Echo(1) = Echo();
  Echo(1).cogh = 15.0F;
  LidarPoint::echo_num = 1;
  Mapped(15.0F);
  EXPECT_EQ(Echo(1).cogh, 15.0F);
  LidarPoint::echo_num = 2;
  Mapped(15.0F);
  EXPECT_EQ(Echo(1).cogh, 2.0F);
}

}  // namespace
}  // namespace kerul::lidar
