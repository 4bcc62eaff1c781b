#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

// Steps of log2(range / 0.14989623) for some ranges, in double precision and rounded.
float RangeLog(float range) {
  return static_cast<float>(std::log2(static_cast<double>(range / 0.14989623F)));
}

float TwoTo(float exponent) {
  return static_cast<float>(std::pow(2.0, static_cast<double>(exponent)));
}

class RetroCalibTest : public FormsTest {
 protected:
  RetroCalibTest() : points(1), curve(512, 0.0F), scale(82944, 1.0F) {
    LidarPoint::echo_num = 2;
    Echo().dist_raw = 20.0F;
    Echo().cogh = 100.0F;
  }
  ~RetroCalibTest() override { LidarPoint::echo_num = 1; }

  LidarEcho& Echo(int slot = 0) { return points[0].echoes[slot]; }
  RetroCalib Calib() const { return {curve, scale, check, efficiant, filter}; }
  void Calibrate() {
    const RetroCalib retro = Calib();
    PacketCalibrator({.retro = &retro}).Calibrate(points);
  }

  std::vector<LidarPoint> points;
  std::vector<float> curve;
  std::vector<float> scale;
  HighReflCheck check;
  std::vector<float> efficiant;
  std::vector<float> filter;
};
RUN_IN_EVERY_FORM(RetroCalibTest);

TEST(RetroCalib, WrongTableSizesArePrintedAndRefused) {
  std::vector<float> curve(10);
  const std::vector<float> scale(7);
  const auto build = [&] { RetroCalib(curve, scale, HighReflCheck{}, {}, {}); };
  ::testing::internal::CaptureStdout();
  try {
    build();
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Invalid retro calib data (expect curve=512, scale=288*288)");
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[INFO] retro_curve.size()=10\n[INFO] retro_scale.size()=7\n");
  curve.resize(512);
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(build(), std::runtime_error);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[INFO] retro_curve.size()=512\n[INFO] retro_scale.size()=7\n");
}

TEST(RetroCalib, OptionalTablesAreValidAtTheirSizes) {
  const auto calib = [](std::size_t efficiant_size, std::size_t filter_size) {
    return RetroCalib(std::vector<float>(512), std::vector<float>(82944), HighReflCheck{},
                      std::vector<float>(efficiant_size), std::vector<float>(filter_size));
  };
  EXPECT_FALSE(calib(0, 0).cogh_efficiant_valid);
  EXPECT_FALSE(calib(0, 0).retro_filter_valid);
  EXPECT_TRUE(calib(600, 31).cogh_efficiant_valid);
  EXPECT_TRUE(calib(600, 31).retro_filter_valid);
  EXPECT_FALSE(calib(599, 32).cogh_efficiant_valid);
  EXPECT_FALSE(calib(599, 32).retro_filter_valid);
  EXPECT_EQ(calib(0, 0).ref_distance, 0.14989623F);
  EXPECT_EQ(calib(0, 0).ref_offset, 6.0F);
}

TEST_P(RetroCalibTest, NoPointsAreNoWork) {
  points.clear();
  Calibrate();
  EXPECT_TRUE(points.empty());
}

TEST_P(RetroCalibTest, ReflectivityFollowsRangeHeightAndScale) {
  curve[100] = -2.0F;
  curve[101] = -1.0F;
  Echo().cogh = 100.5F;
  Calibrate();
  const float log = RangeLog(20.0F);
  EXPECT_EQ(Echo().power, TwoTo(-1.5F));
  EXPECT_EQ(Echo().refl_raw, TwoTo(log + log + -1.5F - 1.0F - 6.0F));
  // Four times the reflectivity of half the range, within rounding of the two logarithms.
  const float far = Echo().refl_raw;
  Echo().dist_raw = 10.0F;
  Calibrate();
  EXPECT_NEAR(far / Echo().refl_raw, 4.0F, 1e-4F);
  EXPECT_EQ(Echo().dist_raw, 10.0F);
}

TEST_P(RetroCalibTest, TheBaselineRiseCountsWithTheHeight) {
  curve[102] = 3.0F;
  Echo().change_noise_noise_append = 6.0F;
  Calibrate();
  EXPECT_EQ(Echo().power, 8.0F);
}

TEST_P(RetroCalibTest, ReflectivityEndsAtItsTop) {
  curve[100] = 40.0F;
  Calibrate();
  EXPECT_EQ(Echo().refl_raw, 255.0F);
  EXPECT_EQ(Echo().power, TwoTo(40.0F));
}

TEST_P(RetroCalibTest, TheScaleIsThePixelsOwn) {
  points[0].row = 7;
  points[0].col = 13;
  scale[static_cast<std::size_t>(((7 / 6) * 48 + 13 / 6) * 36 + 1 * 6 + 1)] = 3.0F;
  Calibrate();
  const float log = RangeLog(20.0F);
  EXPECT_EQ(Echo().refl_raw, TwoTo(log + log + 0.0F - 3.0F - 6.0F));
  points[0].row = 1535;  // outside: the last entry
  points[0].col = 1800;
  scale.back() = 0.0F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
}

TEST_P(RetroCalibTest, StrongEchoesTakeTheLastCurveEntry) {
  curve[511] = 2.0F;
  curve[510] = 9.0F;
  for (const float height : {511.0F, 600.5F, 1e30F, INFINITY}) {
    Echo().cogh = height;
    Calibrate();
    EXPECT_EQ(Echo().power, 4.0F);
  }
  Echo().cogh = std::nanf("");
  Calibrate();
  EXPECT_TRUE(std::isnan(Echo().power));
  EXPECT_TRUE(std::isnan(Echo().refl_raw));
}

TEST_P(RetroCalibTest, RangesBelowThirtyCentimetresCountAsThirty) {
  const auto nearest = static_cast<float>(std::log2(0.3 / static_cast<double>(0.14989623F)));
  scale[0] = -6.0F;  // takes the constant off again, up to rounding
  for (const float range : {0.2F, 0.01F, std::nextafter(0.3F, 0.0F)}) {
    Echo().dist_raw = range;
    Calibrate();
    EXPECT_EQ(Echo().refl_raw, TwoTo(nearest + nearest + 6.0F - 6.0F));
  }
  Echo().dist_raw = 0.6F;
  Calibrate();
  EXPECT_EQ(Echo().refl_raw, TwoTo(RangeLog(0.6F) + RangeLog(0.6F) + 6.0F - 6.0F));
}

TEST_P(RetroCalibTest, AnEmptyEchoIsLeftAsItIs) {
  Echo() = LidarEcho{};
  Echo().refl_raw = 7.0F;
  Echo().power = 3.0F;
  check.near_refl_enable = true;
  check.near_refl_range = 1.0F;
  filter.assign(31, 100.0F);
  const LidarPoint before = points[0];
  Calibrate();
  EXPECT_EQ(std::memcmp(&before, &points[0], sizeof(LidarPoint)), 0);
}

TEST_P(RetroCalibTest, APixelWithoutCalibrationLosesItsEchoes) {
  scale[0] = 0.0F;
  Echo().refl_raw = 7.0F;
  Echo().power = 3.0F;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
  EXPECT_EQ(Echo().refl_raw, 0.0F);
  EXPECT_EQ(Echo().power, 3.0F);
}

TEST_P(RetroCalibTest, ABrightTargetGetsTopReflectivityAndPowerByRange) {
  Echo().highRefl = true;
  Echo().dist_raw = 4.0F;
  Calibrate();
  EXPECT_EQ(Echo().refl_raw, 255.0F);
  EXPECT_EQ(Echo().power, 1310720.0F);  // 20 / 16 * 2^20
  EXPECT_EQ(Echo().dist_raw, 4.0F);
  // 20 / 9 is rounded to 2.22222233, which is 2330169 / 2^20; divided by 3 twice it ends just
  // below.
  Echo().dist_raw = 3.0F;
  Calibrate();
  EXPECT_EQ(Echo().power, 2330169.0F);
}

TEST_P(RetroCalibTest, ABrightTargetWithoutARangeGetsInfinitePower) {
  Echo().highRefl = true;
  Echo().dist_raw = 0.0F;
  Calibrate();
  EXPECT_EQ(Echo().refl_raw, 255.0F);
  EXPECT_TRUE(std::isinf(Echo().power));
  EXPECT_EQ(Echo().dist_raw, 0.0F);
}

TEST_P(RetroCalibTest, ABrightTargetOnAPixelWithoutCalibrationIsErasedButBright) {
  scale[0] = 0.0F;
  Echo().highRefl = true;
  Calibrate();
  EXPECT_EQ(Echo().dist_raw, 0.0F);
  EXPECT_EQ(Echo().refl_raw, 255.0F);
  EXPECT_TRUE(std::isinf(Echo().power));
}

// The reflectivity and power in the line are those from before the override.
TEST_P(RetroCalibTest, TheTracedBrightTargetIsPrinted) {
  points[0].row = 3;
  points[0].col = 4;
  Echo(1) = Echo();
  Echo(1).highRefl = true;
  Echo(1).dist_raw = 2.0F;
  Echo(1).cogh = 260.5F;
  curve[260] = curve[261] = 3.0F;
  scale[27] = 0.0F;  // column 4 of the tile, row 3
  check.trace_enable = true;
  check.trace_row = 3;
  check.trace_col = 4;
  check.trace_echo = 1;
  ::testing::internal::CaptureStdout();
  Echo(1).refl_raw = 9.0F;
  Echo(1).power = 1.5F;
  Calibrate();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[HighReflDebug] row=3 col=4 echo=1 dist=0 cogh=260.5 calib_refl=0 calib_power=1.5 "
            "high_refl_power=inf\n");
}

TEST_P(RetroCalibTest, OnlyTheTracedBrightTargetIsPrinted) {
  points[0].row = 3;
  points[0].col = 4;
  Echo().highRefl = true;
  Echo().dist_raw = 4.0F;
  check.trace_enable = true;
  check.trace_row = 3;
  check.trace_col = 4;
  const auto printed = [&] {
    ::testing::internal::CaptureStdout();
    Calibrate();
    return !::testing::internal::GetCapturedStdout().empty();
  };
  EXPECT_TRUE(printed());
  check.trace_echo = 1;
  EXPECT_FALSE(printed());
  check.trace_echo = 0;
  check.trace_col = 5;
  EXPECT_FALSE(printed());
  check.trace_col = 4;
  check.trace_enable = false;
  EXPECT_FALSE(printed());
  check.trace_enable = true;
  check.trace_row = points[0].row = -1;
  EXPECT_FALSE(printed());
  points[0].row = check.trace_row = 3;
  Echo().highRefl = false;
  EXPECT_FALSE(printed());
}

// With a scale that cancels the rest, the exponent is the curve entry alone.
class NearRangeTest : public RetroCalibTest {
 protected:
  void SetReflectivity(float range, float reflectivity) {
    Echo().dist_raw = range;
    const auto nearest = static_cast<float>(std::log2(0.3 / static_cast<double>(0.14989623F)));
    const float log = static_cast<double>(range) > 0.3 ? RangeLog(range) : nearest;
    // Solved for the curve entry in double precision; tests below allow for the rounding.
    curve[100] = static_cast<float>(std::log2(static_cast<double>(reflectivity)) -
                                    2.0 * static_cast<double>(log) + 1.0 + 6.0);
  }
};
RUN_IN_EVERY_FORM(NearRangeTest);

TEST_P(NearRangeTest, HighReflectivitiesAreSoftenedInTheNearRange) {
  check.near_refl_enable = true;
  check.near_refl_range = 1.0F;
  SetReflectivity(0.9F, 200.0F);
  Calibrate();
  // 100 + 100 / 10; the exponent rounds to 24 bits, the softening divides its effect by ten.
  EXPECT_NEAR(Echo().refl_raw, 110.0F, 1e-4F);
  SetReflectivity(1.0F, 200.0F);  // not below the limit
  Calibrate();
  EXPECT_NEAR(Echo().refl_raw, 200.0F, 1e-3F);
  check.near_refl_enable = false;
  SetReflectivity(0.9F, 200.0F);
  Calibrate();
  EXPECT_NEAR(Echo().refl_raw, 200.0F, 1e-3F);
}

// 100 itself is where both branches meet; below it, softening would raise the value.
TEST_P(NearRangeTest, ReflectivitiesUpToAHundredAreNotSoftened) {
  check.near_refl_enable = true;
  check.near_refl_range = 1.0F;
  for (const float reflectivity : {10.0F, 99.0F, 99.999F}) {
    SetReflectivity(0.5F, reflectivity);
    Calibrate();
    EXPECT_NEAR(Echo().refl_raw, reflectivity, 1e-4F);
  }
}

TEST_P(NearRangeTest, ABrightTargetIsNotSoftened) {
  check.near_refl_enable = true;
  check.near_refl_range = 1.0F;
  SetReflectivity(0.5F, 200.0F);
  Echo().highRefl = true;
  Calibrate();
  EXPECT_EQ(Echo().refl_raw, 255.0F);
}

// The correction table moves the exponent by its entry less 2.
class EfficiantTest : public RetroCalibTest {
 protected:
  EfficiantTest() { efficiant.assign(600, 0.0F); }

  // Exponent that the correction added, recovered from the power law.
  float Added(float range) {
    Echo().dist_raw = range;
    Calibrate();
    const float with = Echo().refl_raw;
    std::vector<float> table;
    table.swap(efficiant);
    Echo().dist_raw = range;
    Calibrate();
    table.swap(efficiant);
    return std::log2(with) - std::log2(Echo().refl_raw);
  }

  void SetRow(int row, float value, int lane = 0) {
    efficiant[static_cast<std::size_t>(row * 6 + lane)] = value;
  }
};
RUN_IN_EVERY_FORM(EfficiantTest);

// The recovered exponent carries the rounding of two exponents near 10: a tolerance of 1e-5.
TEST_P(EfficiantTest, IsLinearInRangeBetweenItsRows) {
  SetRow(12, 1.0F);
  SetRow(13, 2.0F);
  EXPECT_NEAR(Added(1.2500001F), 1.5F - 2.0F, 1e-5F);
  EXPECT_NEAR(Added(5.05F), -2.0F, 1e-5F);
}

TEST_P(EfficiantTest, TheColumnIsThePixelRowWithinTheMiniflashRow) {
  points[0].row = 6 * 4 + 5;
  for (int row = 0; row < 100; ++row) SetRow(row, 3.0F, 5);
  EXPECT_NEAR(Added(2.0F), 1.0F, 1e-5F);
  points[0].row = 6 * 4 + 4;
  EXPECT_NEAR(Added(2.0F), -2.0F, 1e-5F);
}

TEST_P(EfficiantTest, EndsAfterTheLastRow) {
  SetRow(99, 4.0F);
  EXPECT_NEAR(Added(9.900001F), 2.0F, 1e-5F);  // row 99 as it is
  EXPECT_NEAR(Added(std::nextafter(9.900001F, 10.0F)), 0.0F, 1e-5F);
  EXPECT_NEAR(Added(15.0F), 0.0F, 1e-5F);
}

// The reflectivity of these echoes is 2^3 = 8 at 0.3 m and less: the scale cancels the rest.
class FloorTest : public RetroCalibTest {
 protected:
  FloorTest() { filter.assign(31, 0.0F); }

  bool Survives(float range) {
    Echo().dist_raw = range;
    Calibrate();
    const bool kept = Echo().dist_raw == range;
    if (!kept) {
      EXPECT_EQ(Echo().dist_raw, 0.0F);
      EXPECT_EQ(Echo().refl_raw, 0.0F);
    }
    return kept;
  }

  // Sets the curve so that the reflectivity at `range` is 8 up to rounding.
  void SetEight(float range) {
    curve[100] = static_cast<float>(3.0 - 2.0 * static_cast<double>(RangeLog(range)) + 7.0);
  }
};
RUN_IN_EVERY_FORM(FloorTest);

TEST_P(FloorTest, WeakEchoesAreErasedByRange) {
  SetEight(1.05F);
  filter[10] = 6.0F;
  filter[11] = 9.0F;  // 7.5 at 1.05 m
  EXPECT_TRUE(Survives(1.05F));
  filter[11] = 11.0F;  // 8.5
  EXPECT_FALSE(Survives(1.05F));
}

TEST_P(FloorTest, FromThreeMetresOnTheLastEntryCounts) {
  filter[30] = 9.0F;
  SetEight(3.0F);
  EXPECT_FALSE(Survives(3.0F));
  SetEight(50.0F);
  EXPECT_FALSE(Survives(50.0F));
  filter[30] = 7.0F;
  filter[29] = 100.0F;
  EXPECT_TRUE(Survives(50.0F));
  SetEight(3.0F);
  EXPECT_TRUE(Survives(3.0F));
  SetEight(2.95F);
  EXPECT_FALSE(Survives(2.95F));
}

TEST_P(FloorTest, AnEqualReflectivityIsKept) {
  SetEight(50.0F);
  filter[30] = 0.0F;
  Echo().dist_raw = 50.0F;
  Calibrate();
  filter[30] = Echo().refl_raw;
  EXPECT_TRUE(Survives(50.0F));
  filter[30] = std::nextafter(filter[30], 100.0F);
  EXPECT_FALSE(Survives(50.0F));
}

TEST_P(FloorTest, BrightTargetsPassEveryFloorUpToTheTop) {
  filter.assign(31, 255.0F);
  Echo().highRefl = true;
  EXPECT_TRUE(Survives(50.0F));
}

TEST_P(RetroCalibTest, SlotsAreIndependentAndOnlyThoseInUseAreTouched) {
  curve[100] = 1.0F;
  Echo(1).dist_raw = 20.0F;
  Echo(1).cogh = 100.0F;
  Calibrate();
  EXPECT_EQ(Echo(1).refl_raw, Echo().refl_raw);
  LidarPoint::echo_num = 1;
  Echo(1).refl_raw = -1.0F;
  Calibrate();
  EXPECT_EQ(Echo(1).refl_raw, -1.0F);
}

}  // namespace
}  // namespace kerul::lidar
