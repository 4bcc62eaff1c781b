#include "pixel_story/plot_text.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "pixel_story/sentence.h"

namespace kerul::lidar::story {
namespace {

// Three bars of 12, 6 and 0 in twelve lines: a line is a unit.
Plot ThreeBars() {
  Plot plot;
  plot.x_label = "sample";
  plot.y_label = "counts";
  plot.bars = {12.0F, 6.0F, 0.0F};
  return plot;
}

TEST(PlotLines, ABarFillsTheLinesUpToItsHeight) {
  const std::vector<std::string> lines = PlotLines(ThreeBars());
  ASSERT_EQ(lines.size(), 14U);
  EXPECT_EQ(lines[0], "   counts");
  EXPECT_EQ(lines[1], "       12 | ##");
  EXPECT_EQ(lines[6], "          | ##");
  EXPECT_EQ(lines[7], "          | ##  ##");
  EXPECT_EQ(lines[12], "        0 | ##  ##");
  EXPECT_EQ(lines[13], "             0   1   2  sample");
}

TEST(PlotLines, LevelsRunAcrossBehindTheBarsWithTheirNames) {
  Plot plot = ThreeBars();
  plot.marked = {1};
  plot.levels = {
      {"baseline", 2.0F}, {"cut", 1.5F}, {"lost", std::numeric_limits<float>::infinity()}};
  const std::vector<std::string> lines = PlotLines(plot);
  EXPECT_EQ(lines[11], "          |-##--xx----- baseline 2, cut 1.5");
  for (const std::string& line : lines) EXPECT_EQ(line.find("lost"), std::string::npos);
}

TEST(PlotLines, MarksAndSpansStandBelowTheAxis) {
  Plot plot = ThreeBars();
  plot.marks = {{"centre", 1.0F}};
  plot.spans = {{"width", 0.0F, 2.0F, 6.0F}};
  const std::vector<std::string> lines = PlotLines(plot);
  ASSERT_EQ(lines.size(), 16U);
  EXPECT_EQ(lines[14], "                 ^ centre 1");
  EXPECT_EQ(lines[15], "             [=======] width 0 to 2");
}

TEST(PlotLines, ValuesThatAreNoNumbersAndPlacesOutsideDoNoHarm) {
  Plot plot = ThreeBars();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  plot.bars = {nan, nan};
  plot.marks = {{"centre", nan}, {"far", 1e30F}};
  plot.spans = {{"width", nan, -1e30F, nan}};
  EXPECT_EQ(PlotLines(plot).size(), 17U);
  plot.bars = {3e38F, -3e38F};  // no axis has both
  EXPECT_EQ(PlotLines(plot).size(), 17U);
  EXPECT_TRUE(PlotLines(Plot{}).empty());
}

TEST(RoundedSides, HaveAllDigitsWhereRoundingWouldHideTheDifference) {
  const Sides apart = RoundedSides(1.0F, 2.5F);
  EXPECT_EQ(apart.left, "1");
  EXPECT_EQ(apart.right, "2.5");
  const Sides close = RoundedSides(0.7000001F, 0.7F);
  EXPECT_EQ(close.left, "0.7000001");
  EXPECT_EQ(close.right, "0.7");
}

TEST(Listed, JoinsWithCommasAndAnAnd) {
  EXPECT_EQ(Listed({3}), "3");
  EXPECT_EQ(Listed({3, 5}), "3 and 5");
  EXPECT_EQ(Listed({3, 5, 6}), "3, 5 and 6");
}

}  // namespace
}  // namespace kerul::lidar::story
