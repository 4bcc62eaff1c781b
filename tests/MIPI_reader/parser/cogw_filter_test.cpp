#include "MIPI_reader/parser/cogw_filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>

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
