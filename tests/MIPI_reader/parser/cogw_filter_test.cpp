#include "MIPI_reader/parser/cogw_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

namespace kerul::lidar {
namespace {

std::vector<float> Curve() { return std::vector<float>(641, 1.0F); }

std::string ErrorOf(std::vector<float> low, std::vector<float> gate, std::vector<float> high) {
  try {
    const CogwFilter filter(std::move(low), std::move(gate), std::move(high));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(CogwFilter, KeepsItsThreeCurves) {
  std::vector<float> gate = Curve();
  gate[640] = 2.0F;
  const CogwFilter filter(Curve(), gate, std::vector<float>(641, 3.0F));
  EXPECT_EQ(filter.cogw_low_curve[0], 1.0F);
  EXPECT_EQ(filter.cogw_gate_curve[640], 2.0F);
  EXPECT_EQ(filter.cogw_high_curve[640], 3.0F);
}

TEST(CogwFilter, LimitsHoldTheCurvesSideBySide) {
  std::vector<float> low(641);
  std::vector<float> gate(641);
  std::vector<float> high(641);
  for (int i = 0; i < 641; ++i) {
    const auto k = static_cast<std::size_t>(i);
    low[k] = static_cast<float>(i);
    gate[k] = static_cast<float>(1000 + i);
    high[k] = static_cast<float>(2000 + i);
  }
  const CogwFilter filter(low, gate, high);
  for (const int i : {0, 1, 320, 640}) {
    EXPECT_EQ(filter.Limits()[i].low, static_cast<float>(i));
    EXPECT_EQ(filter.Limits()[i].gate, static_cast<float>(1000 + i));
    EXPECT_EQ(filter.Limits()[i].high, static_cast<float>(2000 + i));
  }
}

TEST(CogwFilter, RefusesAnyCurveOfAnotherLength) {
  const std::string expected = "Invalid cogw filter data (expect peak range 0..640)";
  const std::vector<float> shorter(640, 1.0F);
  const std::vector<float> longer(642, 1.0F);
  EXPECT_EQ(ErrorOf(shorter, Curve(), Curve()), expected);
  EXPECT_EQ(ErrorOf(Curve(), longer, Curve()), expected);
  EXPECT_EQ(ErrorOf(Curve(), Curve(), {}), expected);
}

TEST(CogwFilter, NamesTheFirstIndexAtWhichACurveIsMissing) {
  std::vector<float> gate = Curve();
  gate[17] = std::nanf("");
  EXPECT_EQ(ErrorOf(Curve(), gate, Curve()), "Invalid cogw filter data: missing curve at peak=17");
  std::vector<float> high = Curve();
  high[3] = std::nanf("");
  EXPECT_EQ(ErrorOf(Curve(), gate, high), "Invalid cogw filter data: missing curve at peak=3");
  std::vector<float> low = Curve();
  low[640] = std::nanf("");
  EXPECT_EQ(ErrorOf(low, Curve(), Curve()), "Invalid cogw filter data: missing curve at peak=640");
}

TEST(CogwFilter, InfinityIsNotAGap) {
  EXPECT_EQ(ErrorOf(std::vector<float>(641, INFINITY), Curve(), Curve()), "");
}

}  // namespace
}  // namespace kerul::lidar
