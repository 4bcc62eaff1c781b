#include "lidar_web/rate_window.h"

#include <gtest/gtest.h>

namespace kerul::lidar::web {
namespace {

using std::chrono::milliseconds;
using TimePoint = RateWindow::TimePoint;

TEST(RateWindow, EvenStepsGiveAnEvenRateAtAnyTime) {
  RateWindow window;
  for (int i = 0; i < 30; ++i)
    window.Add(TimePoint{} + milliseconds(100 * i), static_cast<unsigned>(i));
  for (const int late : {0, 50, 99}) {
    EXPECT_DOUBLE_EQ(window.PerSecond(TimePoint{} + milliseconds(2900 + late)), 10.0) << late;
  }
}

TEST(RateWindow, AStallLowersTheRateUntilItIsZero) {
  RateWindow window;
  for (int i = 0; i <= 10; ++i)
    window.Add(TimePoint{} + milliseconds(100 * i), static_cast<unsigned>(i));
  EXPECT_DOUBLE_EQ(window.PerSecond(TimePoint{} + milliseconds(2000)), 5.0);
  EXPECT_EQ(window.PerSecond(TimePoint{} + milliseconds(3001)), 0.0);
}

TEST(RateWindow, OneStepIsNoRate) {
  RateWindow window;
  EXPECT_EQ(window.PerSecond(TimePoint{}), 0.0);
  window.Add(TimePoint{}, 5);
  EXPECT_EQ(window.PerSecond(TimePoint{} + milliseconds(1)), 0.0);
}

TEST(RateWindow, OldStepsAreForgotten) {
  RateWindow window;
  window.Add(TimePoint{}, 0);
  window.Add(TimePoint{} + milliseconds(5000), 1000);
  EXPECT_EQ(window.PerSecond(TimePoint{} + milliseconds(5000)), 0.0);
  window.Add(TimePoint{} + milliseconds(5100), 1001);
  EXPECT_DOUBLE_EQ(window.PerSecond(TimePoint{} + milliseconds(5100)), 10.0);
}

}  // namespace
}  // namespace kerul::lidar::web
