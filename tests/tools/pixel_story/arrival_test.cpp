#include "pixel_story/arrival.h"

#include <gtest/gtest.h>

#include <limits>

namespace kerul::lidar::story {
namespace {

// A pulse of this peak ratio; a sure one lies above 1 or below 0.
LidarEcho Window(float ratio, float range = 0.0F) {
  LidarEcho echo;
  echo.peak_ratio = ratio;
  echo.detect_pass = ratio > 1.0F || ratio < 0.0F;
  echo.dist_raw = range;
  return echo;
}

TEST(Arrival, AnEchoWithARangeHasArrived) {
  EXPECT_EQ(ArrivalOf(Window(2.0F, 5.0F), Window(2.0F, 4.9F), true), Arrival::kRange);
  EXPECT_EQ(ArrivalOf(Window(0.8F, 5.0F), Window(0.8F, 4.9F), true), Arrival::kRange);
}

TEST(Arrival, ASlotThatTheParserLeftAloneHasNoWindow) {
  EXPECT_EQ(ArrivalOf(LidarEcho{}, LidarEcho{}, true), Arrival::kNoWindow);
}

TEST(Arrival, TheNearMissEndsAtSevenTenths) {
  EXPECT_EQ(ArrivalOf(Window(0.7F), Window(0.7F), true), Arrival::kBelowLevel);
  EXPECT_EQ(ArrivalOf(Window(0.1F), Window(0.1F), true), Arrival::kBelowLevel);
  EXPECT_EQ(ArrivalOf(Window(0.71F), Window(0.71F), true), Arrival::kNoRange);
}

TEST(Arrival, ACentreAtTheBaselineIsNoPulse) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(ArrivalOf(Window(0.0F), Window(0.0F), true), Arrival::kNoPulse);
  EXPECT_EQ(ArrivalOf(Window(nan), Window(nan), true), Arrival::kNoPulse);
}

TEST(Arrival, ADroppedPulseHasAHighWidthAndNoRange) {
  LidarEcho dropped = Window(3.0F);
  dropped.cogw_flag = cogw_flags::kHighWidthValid;
  EXPECT_EQ(ArrivalOf(dropped, dropped, true), Arrival::kTooWide);
  EXPECT_EQ(ArrivalOf(dropped, dropped, false), Arrival::kTooWide) << "the parser comes first";
}

TEST(Arrival, ARangeIsLostToTheCalibration) {
  EXPECT_EQ(ArrivalOf(Window(2.0F, 5.0F), Window(2.0F), false), Arrival::kNoCalibration);
  EXPECT_EQ(ArrivalOf(Window(2.0F, -1.0F), Window(2.0F), true), Arrival::kNoRange);
  LidarEcho weak = Window(2.0F);
  weak.power = 3.0F;
  EXPECT_EQ(ArrivalOf(Window(2.0F, 5.0F), weak, true), Arrival::kTooWeak);
  weak.refl_raw = 255.0F;  // a bright target without a range
  EXPECT_EQ(ArrivalOf(Window(2.0F, -1.0F), weak, true), Arrival::kNoRange);
}

}  // namespace
}  // namespace kerul::lidar::story
