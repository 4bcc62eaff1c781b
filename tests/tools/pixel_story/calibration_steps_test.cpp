#include "pixel_story/calibration_steps.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "MIPI_reader/node/point_calibration/high_reflectivity_check_scalar.h"

namespace kerul::lidar::story {
namespace {

using namespace point_calibration;
using Sentences = std::vector<std::string>;

constexpr std::size_t kEnvironment = 0;
constexpr std::size_t kRange = 1;
constexpr std::size_t kHighThreshold = 2;
constexpr std::size_t kHighReflectivity = 3;
constexpr std::size_t kReflectivity = 4;

// A road with an echo at 10 m, its decisions filled in by the tests; all steps on.
class CalibrationSentences : public ::testing::Test {
 protected:
  CalibrationSentences() {
    LidarPoint::echo_num = 2;
    check_.enable = true;
    steps_ = {.env = &env_,
              .dist = &dist_,
              .high_threshold_map = &map_,
              .high_refl_check = &check_,
              .retro = &retro_};
    road_.pixel_entry = 77;
    road_.decoded.echoes[0].dist_raw = 10.0F;
    told_.after_range.dist_raw = 10.0F;
    told_.after_range.cogh = 300.0F;
  }
  ~CalibrationSentences() override { LidarPoint::echo_num = 1; }

  Sentences Of(std::size_t step, int slot = 0) const {
    return CalibrationStepsOf(road_, steps_, slot)[step].sentences;
  }

  EnvCalib env_{{1.0F}, {1.0F}, {}, 0.0F};
  DistCalib dist_{std::vector<float>(512), std::vector<float>(82944), {}};
  HighThresholdMap map_{{0.0F, 1.0F}, {0.0F, 1.0F}};
  HighReflCheck check_;
  RetroCalib retro_{std::vector<float>(512), std::vector<float>(82944), {}, {}, {}};
  CalibrationSteps steps_;
  PacketRoad road_{};
  CalibrationDecisions& told_ = road_.calibration[0];
};

TEST_F(CalibrationSentences, StepsThatAreOffSaySo) {
  steps_ = {};
  for (const Step& step : CalibrationStepsOf(road_, steps_, 0)) {
    EXPECT_EQ(step.sentences, (Sentences{"this step is off"})) << step.name;
  }
}

TEST_F(CalibrationSentences, AnEchoWithoutARangeHasNothingToDo) {
  for (const std::size_t step : {kEnvironment, kRange, kHighThreshold, kReflectivity}) {
    EXPECT_EQ(Of(step, 1), (Sentences{"the echo has no range, so there is nothing to do"}));
  }
}

TEST_F(CalibrationSentences, TellTheGainAndTheShiftByTheBackground) {
  told_.gain = {.high = true,
                .noise = 12.5F,
                .index = 12,
                .gain = 0.25F,
                .bias = 4.0F,
                .before = 20.0F,
                .height = 26.0F};
  told_.shift = {.noise_term = 3.0F, .before = 10.0F, .range = 9.5F};
  EXPECT_EQ(Of(kEnvironment),
            (Sentences{"a noise of 12.5 reads entry 12 of the high-width table, a gain of 0.25: "
                       "the height goes from 20 to 26 levels, with a bias of 4",
                       "the background shifts the range from 10 m to 9.5 m (noise term 3)"}));
}

TEST_F(CalibrationSentences, TellTheRangeByCurveAndOffset) {
  told_.range = {.high = false,
                 .height = 20.5F,
                 .curve = {20, 0.5F, 6.0F, 8.0F, 7.0F},
                 .offset = 57.0F,
                 .scale = 1.0F,
                 .before = 10.0F,
                 .corrected = 9.0F,
                 .range = 9.0F};
  EXPECT_EQ(Of(kRange),
            (Sentences{"the low-width curve is read: at a height of 20.5 levels the curve gives 7, "
                       "from entry 20 (6) and the next (8)",
                       "the pixel's offset is 57, entry 77 of the table by pixel",
                       "10 m less the sum of both at 1 / 64 m each is 9 m"}));
  told_.range->corrected = -2.0F;
  told_.range->range = 0.004F;
  EXPECT_EQ(Of(kRange).back(), "that is below 0: the smallest range, 0.004 m, stays");
}

TEST_F(CalibrationSentences, TellWhyARangeWasLost) {
  told_.range_loss = {.before = 10.0F, .height = 5.0F, .offset = 0.0F};
  EXPECT_EQ(Of(kRange),
            (Sentences{"the pixel's offset is 0, entry 77 of the table by pixel: a pixel without "
                       "calibration, the echo loses its range"}));
  told_.range_loss->height = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(Of(kRange), (Sentences{"the height is not a number: the echo loses its range"}));
}

TEST_F(CalibrationSentences, TellTheMappingOfHeights) {
  EXPECT_EQ(Of(kHighThreshold),
            (Sentences{"the height was measured at the low threshold, so it is not mapped"}));
  told_.mapping = {true, 3, 200.0F, 400.0F, 100.0F, 120.0F, 110.0F};
  EXPECT_EQ(Of(kHighThreshold),
            (Sentences{"a height at the high threshold of 300 levels becomes 110: entry 3 maps 200 "
                       "to 100, the next 400 to 120"}));
  told_.mapping = {false, 9, 250.0F, 250.0F, 90.0F, 90.0F, 90.0F};
  EXPECT_EQ(Of(kHighThreshold),
            (Sentences{"a height at the high threshold of 300 levels becomes 90: outside the map "
                       "the nearest entry counts, 9, for a height of 250"}));
}

// Runs the rules themselves, with both echoes ranged.
class RuleSentences : public CalibrationSentences {
 protected:
  struct Teller {
    PacketRoad& road;
    void Rule(HighReflRule rule) { road.rules.push_back({rule, {}}); }
    void Comparison(const HighReflComparison& comparison) {
      road.rules.back().comparisons.push_back(comparison);
    }
    void Verdict(const HighReflVerdict& verdict) { road.verdict = verdict; }
  };

  Sentences Check(LidarEcho first, LidarEcho second, int slot = 0) {
    road_.rules.clear();
    Teller tell{road_};
    road_.calibration[1].after_map = second;
    CheckPixel(check_, first, &second, tell);
    road_.calibration[0].after_check = first;
    road_.calibration[1].after_check = second;
    return Of(kHighReflectivity, slot);
  }
  static LidarEcho Echo(float range, float height) {
    LidarEcho echo;
    echo.dist_raw = range;
    echo.cogh = height;
    return echo;
  }
};

TEST_F(RuleSentences, EachRuleLookedAtTellsBothSidesUpToTheOneThatFails) {
  check_.rule_a_enable = true;
  check_.rule_a_height = 40.0F;
  check_.rule_b_enable = true;
  check_.rule_b_height = 10.0F;
  check_.rule_b_range = {2.0F, 30.0F};
  check_.rule_b_range_on = true;
  check_.rule_b_double_tol = 0.5F;
  EXPECT_EQ(
      Check(Echo(10.0F, 12.0F), Echo(20.25F, 3.0F)),
      (Sentences{"rule A (strong and near, weaker echo beyond) does not hold: height 12 levels is "
                 "not above 40",
                 "rule B (second echo at twice the range) holds: height 12 levels is above 10; "
                 "range 10 m is above 2 and at most 30; distance of the second echo from twice the "
                 "range 0.25 m is at most 0.5",
                 "the echo is a bright target"}));
  EXPECT_EQ(Check(Echo(10.0F, 12.0F), Echo(20.25F, 3.0F), 1)[2],
            "the second echo is an after-pulse");
  EXPECT_EQ(Check(Echo(10.0F, 12.0F), Echo(0.0F, 0.0F)),
            (Sentences{"rules that need a second echo are not looked at: there is none",
                       "the echo is no bright target"}));
}

TEST_F(RuleSentences, ASwitchedOffTestFailsItsRule) {
  check_.rule_c_enable = true;
  check_.rule_c_height = 10.0F;
  EXPECT_EQ(Check(Echo(10.0F, 12.0F), Echo(0.0F, 0.0F))[0],
            "rule C (strong at a distance) does not hold: height 12 levels is above 10; a further "
            "test it needs is switched off");
}

TEST_F(RuleSentences, TheBaselinesRiseNeedsTheHeightOfRuleC) {
  check_.rule_c_height = 100.0F;
  LidarEcho bright = Echo(10.0F, 100.0F);
  bright.highRefl = true;
  EXPECT_EQ(Check(bright, Echo(0.0F, 0.0F)),
            (Sentences{"the baseline's rise does not hold: height 100 levels is not above 100",
                       "the echo is no bright target"}));
  bright.cogh = 101.0F;
  EXPECT_EQ(Check(bright, Echo(0.0F, 0.0F)),
            (Sentences{"the baseline's rise holds: height 101 levels is above 100",
                       "the echo is a bright target"}));
}

TEST_F(CalibrationSentences, TellTheReflectivitysPowerLaw) {
  told_.reflectivity = {.range = 9.0F,
                        .range_log = 5.0F,
                        .height = 20.0F,
                        .curve = {20, 0.0F, 4.0F, 4.5F, 4.0F},
                        .scale = 2.0F,
                        .ref_offset = 6.0F,
                        .near = {.row = 90, .lane = 3, .value = -0.5F},
                        .exponent = 5.5F,
                        .measured = 300.0F,
                        .reflectivity = 255.0F,
                        .power = 16.0F};
  EXPECT_EQ(Of(kReflectivity),
            (Sentences{"at a height of 20 levels the curve gives 4, from entry 20 (4) and the next "
                       "(4.5), the base-2 logarithm of the power 16",
                       "twice the range's logarithm, 5, and the curve, less the pixel's scale of 2 "
                       "(entry 77 of the table by pixel) and 6, and the near range's -0.5 (row 90, "
                       "column 3 of its table), make an exponent of 5.5",
                       "two to that power is a reflectivity of 300, above the top value: 255"}));
}

TEST_F(CalibrationSentences, TellHowTheReflectivityWasChangedAfterwards) {
  told_.unscaled_range = 9.0F;
  told_.softened = {.range = 3.0F, .near_range = 5.0F, .before = 200.0F, .reflectivity = 110.0F};
  told_.floor = {.entry = 30, .floor = 4.0F, .range = 8.0F, .reflectivity = 3.0F};
  EXPECT_EQ(Of(kReflectivity),
            (Sentences{"the pixel's scale is 0, entry 77 of the table by pixel: a pixel without "
                       "calibration, the echo of 9 m is erased",
                       "the range of 3 m is below 5 m and the reflectivity of 200 above 100: it is "
                       "softened to 110",
                       "at 8 m a reflectivity of 3 is below the floor of 4 (from entry 30 of its "
                       "table on): the echo is erased"}));
  told_.floor->reflectivity = 4.0F;
  EXPECT_EQ(Of(kReflectivity)[2],
            "at 8 m a reflectivity of 4 is not below the floor of 4 (from entry 30 of its table "
            "on)");
}

}  // namespace
}  // namespace kerul::lidar::story
