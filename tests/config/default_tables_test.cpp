#include "config/default_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "config/default_config.h"

namespace kerul::lidar {
namespace {

using testing::Each;
using testing::ElementsAreArray;

const DefaultTables& Tables() { return default_config::kConfig.tables; }

struct Known {
  std::size_t index;
  float value;
};

template <typename T>
void ExpectHits(const std::vector<T>& table, const std::vector<Known>& known) {
  for (const auto& [index, value] : known) {
    ASSERT_LT(index, table.size());
    EXPECT_EQ(static_cast<float>(table[index]), value) << "index " << index;
  }
  EXPECT_FALSE(known.empty());
}

// Every entry of first..last (inclusive) against the one after it.
template <typename T, typename Compare>
void ExpectSteps(const std::vector<T>& table, std::size_t first, std::size_t last, Compare holds) {
  ASSERT_LT(first, last);
  ASSERT_LT(last, table.size());
  for (std::size_t i = first; i < last; ++i) {
    EXPECT_TRUE(holds(table[i], table[i + 1])) << i << ": " << table[i] << ", " << table[i + 1];
  }
}

// The value and how often it follows.
std::vector<std::pair<float, int>> Runs(const std::vector<float>& table) {
  std::vector<std::pair<float, int>> runs;
  for (const float value : table) {
    if (runs.empty() || runs.back().first != value) runs.emplace_back(value, 0);
    ++runs.back().second;
  }
  return runs;
}

TEST(DefaultTables, HaveTheLengthsThatTheirReadersRequire) {
  EXPECT_EQ(Tables().shot_times.size(), 48U);
  EXPECT_EQ(Tables().high_threshold_cogh_in.size(), 510U);
  EXPECT_EQ(Tables().high_threshold_cogh_out.size(), 510U);
  EXPECT_EQ(Tables().env_cogh.size(), 1024U);
  EXPECT_EQ(Tables().env_cogh_high.size(), 1024U);
  EXPECT_EQ(Tables().detect_threshold.size(), 513U);
  EXPECT_EQ(Tables().cogh_efficiant.size(), 600U);
  EXPECT_EQ(Tables().cogw_a.size(), 641U);
  EXPECT_EQ(Tables().cogw_b.size(), 641U);
  EXPECT_EQ(Tables().cogw_c.size(), 641U);
  EXPECT_EQ(Tables().psf_same_block.size(), 32U);
  EXPECT_EQ(Tables().psf_adjacent_block.size(), 32U);
  EXPECT_EQ(Tables().psf_diagonal_block.size(), 32U);
  EXPECT_EQ(Tables().power_template.size(), 36U);
}

TEST(DefaultTables, WhatDiffersFromSensorToSensorIsEmpty) {
  EXPECT_TRUE(Tables().env_cogt.empty());
  EXPECT_TRUE(Tables().retro_filter.empty());
  EXPECT_TRUE(Tables().dist_curve.empty());
  EXPECT_TRUE(Tables().dist_curve_high.empty());
  EXPECT_TRUE(Tables().dist_offset.empty());
  EXPECT_TRUE(Tables().retro_curve.empty());
  EXPECT_TRUE(Tables().retro_scale.empty());
  EXPECT_TRUE(Tables().angle_dat.empty());
}

TEST(DefaultTables, HoldNoNaN) {
  int compared = 0;
  for (const std::vector<float>* table :
       {&Tables().env_cogh, &Tables().env_cogh_high, &Tables().cogh_efficiant, &Tables().cogw_a,
        &Tables().cogw_b, &Tables().cogw_c}) {
    for (const float value : *table) {
      EXPECT_TRUE(std::isfinite(value));
      ++compared;
    }
  }
  EXPECT_EQ(compared, 1024 + 1024 + 600 + 641 + 641 + 641);
}

TEST(DefaultTables, ShotTimesFollowTheirRuns) {
  const std::vector<std::pair<float, int>> expected{{80.0F, 8},  {176.0F, 4}, {288.0F, 3},
                                                    {432.0F, 4}, {288.0F, 2}, {176.0F, 3},
                                                    {80.0F, 12}, {0.0F, 12}};
  EXPECT_EQ(Runs(Tables().shot_times), expected);
}

TEST(DefaultTables, HighThresholdHeightsAreAllButFourAndTen) {
  std::vector<float> expected;
  for (int height = 0; height <= 511; ++height) {
    if (height != 4 && height != 10) expected.push_back(static_cast<float>(height));
  }
  EXPECT_EQ(Tables().high_threshold_cogh_in, expected);
}

TEST(DefaultTables, HighThresholdMapHoldsItsKnownPairs) {
  const std::vector<std::pair<float, float>> pairs{
      {0.0F, 0.0F},     {5.0F, 4.0F},     {52.0F, 44.0F},   {102.0F, 85.0F},  {152.0F, 127.0F},
      {202.0F, 173.0F}, {252.0F, 217.0F}, {302.0F, 270.0F}, {402.0F, 381.0F}, {511.0F, 490.0F}};
  const std::vector<float>& in = Tables().high_threshold_cogh_in;
  int found = 0;
  for (const auto& [height, mapped] : pairs) {
    const auto place = std::find(in.begin(), in.end(), height);
    ASSERT_NE(place, in.end());
    EXPECT_EQ(Tables().high_threshold_cogh_out[static_cast<std::size_t>(place - in.begin())],
              mapped);
    ++found;
  }
  EXPECT_EQ(found, 10);
}

TEST(DefaultTables, HighThresholdMapRisesByTwoOnlyWhereThePairsDemandIt) {
  // 252 to 302 rises by 53 over 50 entries, 302 to 402 by 111 over 100: 3 and 11 double steps.
  const std::vector<float>& out = Tables().high_threshold_cogh_out;
  int doubles_before_252 = 0;
  int doubles_to_302 = 0;
  int doubles_to_402 = 0;
  int doubles_after_402 = 0;
  for (std::size_t i = 0; i + 1 < out.size(); ++i) {
    const float step = out[i + 1] - out[i];
    EXPECT_TRUE(step == 0.0F || step == 1.0F || step == 2.0F) << i << ": " << step;
    if (step != 2.0F) continue;
    const float height = Tables().high_threshold_cogh_in[i];
    if (height < 252.0F) {
      ++doubles_before_252;
    } else if (height < 302.0F) {
      ++doubles_to_302;
    } else if (height < 402.0F) {
      ++doubles_to_402;
    } else {
      ++doubles_after_402;
    }
  }
  EXPECT_EQ(doubles_before_252, 0);
  EXPECT_EQ(doubles_to_302, 3);
  EXPECT_EQ(doubles_to_402, 11);
  EXPECT_EQ(doubles_after_402, 0);
}

TEST(DefaultTables, EnvCoghPeaksBeforeItsPlateau) {
  const std::vector<float>& table = Tables().env_cogh;
  ExpectHits(table, {{0, 0.0F},
                     {5, 0.00006F},
                     {10, 0.01796F},
                     {32, 0.06739F},
                     {64, 0.13742F},
                     {128, 0.3278F},
                     {244, 1.90958F},
                     {248, 1.87417F},
                     {256, 1.87417F},
                     {1023, 1.87417F}});
  ExpectSteps(table, 0, 244, std::less<>());
  ExpectSteps(table, 244, 248, std::greater<>());
  ExpectSteps(table, 248, 1023, std::equal_to<>());
}

TEST(DefaultTables, EnvCoghHighRisesToItsPlateau) {
  const std::vector<float>& table = Tables().env_cogh_high;
  ExpectHits(table, {{0, 0.00002F},
                     {5, 0.00077F},
                     {10, 0.01545F},
                     {32, 0.06842F},
                     {64, 0.13916F},
                     {128, 0.33974F},
                     {243, 1.81036F},
                     {256, 1.81036F},
                     {1023, 1.81036F}});
  ExpectSteps(table, 0, 243, std::less<>());
  ExpectSteps(table, 243, 1023, std::equal_to<>());
}

TEST(DefaultTables, DetectThresholdRisesThroughItsKnownLevels) {
  ExpectHits(Tables().detect_threshold, {{0, 6.0F},
                                         {8, 11.0F},
                                         {16, 16.0F},
                                         {32, 23.0F},
                                         {64, 36.0F},
                                         {128, 60.0F},
                                         {256, 93.0F},
                                         {384, 120.0F},
                                         {512, 142.0F}});
  ExpectSteps(Tables().detect_threshold, 0, 512, std::less_equal<>());
}

// The first two stretches rise by 5 over 8 entries, so the curve is a line there.
TEST(DefaultTables, DetectThresholdIsRoundedBetweenItsKnownLevels) {
  const std::vector<std::uint16_t>& levels = Tables().detect_threshold;
  EXPECT_EQ(levels.at(1), 7);  // 6.625
  EXPECT_EQ(levels.at(2), 7);  // 7.25
  EXPECT_EQ(levels.at(3), 8);  // 7.875
  EXPECT_EQ(levels.at(4), 9);  // 8.5
}

TEST(DefaultTables, CoghEfficiantHoldsItsKnownRows) {
  const std::vector<std::pair<std::size_t, std::vector<float>>> rows{
      {0, {7.141F, 7.425F, 7.251F, 6.703F, 6.786F, 7.285F}},
      {1, {7.141F, 7.425F, 7.251F, 6.703F, 6.786F, 7.285F}},
      {10, {0.842F, 1.337F, 2.427F, 2.9F, 3.585F, 5.944F}},
      {20, {1.803F, 1.412F, 2.053F, 2.594F, 2.033F, 2.472F}},
      {50, {2.056F, 2.067F, 1.976F, 1.933F, 1.936F, 1.998F}},
      {99, {2.079F, 2.283F, 2.161F, 1.83F, 1.824F, 2.074F}}};
  for (const auto& [row, values] : rows) {
    for (std::size_t col = 0; col < 6; ++col) {
      EXPECT_EQ(Tables().cogh_efficiant[row * 6 + col], values[col]) << row << ", " << col;
    }
  }
}

TEST(DefaultTables, CoghEfficiantGoesFromKnownRowToKnownRowWithoutTurning) {
  const std::vector<std::size_t> rows{0, 1, 10, 20, 50, 99};
  int compared = 0;
  for (std::size_t col = 0; col < 6; ++col) {
    const auto at = [col](std::size_t row) { return Tables().cogh_efficiant[row * 6 + col]; };
    for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
      const bool is_rising = at(rows[i]) <= at(rows[i + 1]);
      for (std::size_t row = rows[i]; row < rows[i + 1]; ++row) {
        EXPECT_TRUE(is_rising ? at(row) <= at(row + 1) : at(row) >= at(row + 1))
            << row << ", " << col;
        ++compared;
      }
    }
    EXPECT_GT(at(2), at(9)) << "falls through the near range";
  }
  EXPECT_EQ(compared, 6 * 99);
}

TEST(DefaultTables, CogwAEndsAfterSeventeenEntries) {
  const std::vector<float> head{4.8F, 8.6F, 8.0F, 8.0F, 7.38F, 5.48F, 6.39F, 5.59F, 4.88F,
                                5.5F, 5.5F, 5.5F, 5.5F, 4.7F,  4.7F,  4.7F,  4.7F};
  const std::vector<float>& table = Tables().cogw_a;
  EXPECT_THAT(std::vector<float>(table.begin(), table.begin() + 17), ElementsAreArray(head));
  EXPECT_THAT(std::vector<float>(table.begin() + 17, table.end()), Each(0.0F));
}

TEST(DefaultTables, CogwBIsFlatToEightAndFallsFromThere) {
  ExpectHits(Tables().cogw_b, {{0, 7.45395F},
                               {8, 7.45395F},
                               {16, 7.2678F},
                               {64, 6.3619F},
                               {128, 5.8265F},
                               {320, 5.3549F},
                               {640, 4.35357F}});
  ExpectSteps(Tables().cogw_b, 0, 8, std::equal_to<>());
  ExpectSteps(Tables().cogw_b, 8, 640, std::greater<>());
}

TEST(DefaultTables, CogwCHasItsSmallestValueBeforeTheEnd) {
  const std::vector<float>& table = Tables().cogw_c;
  ExpectHits(
      table,
      {{0, 3.82526F}, {8, 3.7491F}, {64, 3.2155F}, {128, 2.954F}, {320, 2.7745F}, {640, 2.71568F}});
  const auto smallest = std::min_element(table.begin(), table.end());
  EXPECT_EQ(*smallest, 2.68896F);
  EXPECT_EQ(std::count(table.begin(), table.end(), 2.68896F), 1);
  const auto place = static_cast<std::size_t>(smallest - table.begin());
  EXPECT_GT(place, 320U);
  EXPECT_LT(place, 640U);
  ExpectSteps(table, 0, place, std::greater_equal<>());
  ExpectSteps(table, place, 640, std::less_equal<>());
}

TEST(DefaultTables, PsfTablesFollowTheirRuns) {
  const std::vector<std::pair<float, int>> same{{1.24976e-4F, 6}, {1.10544e-4F, 1}, {7.782e-5F, 1},
                                                {4.064e-5F, 1},   {3.7484e-5F, 2},  {2.7628e-5F, 2},
                                                {2.0148e-5F, 1},  {1.1556e-5F, 2},  {1.1004e-5F, 1},
                                                {1.792e-6F, 1},   {0.0F, 14}};
  const std::vector<std::pair<float, int>> adjacent{
      {2.9956e-5F, 2}, {2.8188e-5F, 4}, {7.348e-6F, 1}, {3.616e-6F, 9}, {-4.36e-7F, 16}};
  const std::vector<std::pair<float, int>> diagonal{
      {1.284e-5F, 6}, {1.2636e-5F, 1}, {1.1188e-5F, 1}, {1.972e-6F, 2},
      {1.568e-6F, 2}, {9.36e-7F, 4},   {-1.2e-8F, 16}};
  EXPECT_EQ(Runs(Tables().psf_same_block), same);
  EXPECT_EQ(Runs(Tables().psf_adjacent_block), adjacent);
  EXPECT_EQ(Runs(Tables().psf_diagonal_block), diagonal);
}

TEST(DefaultTables, PowerTemplateStandsRowByRow) {
  const std::vector<float> expected{
      72.44F,  92.65F,  129.37F, 119.34F, 84.23F,  69.19F,  97.6F,   118.88F, 187.22F,
      169.9F,  106.08F, 90.32F,  147.51F, 188.57F, 301.58F, 277.41F, 170.03F, 132.55F,
      133.6F,  170.66F, 270.61F, 254.69F, 162.65F, 126.94F, 92.52F,  112.91F, 183.48F,
      172.93F, 108.99F, 92.76F,  73.06F,  90.48F,  129.11F, 122.72F, 86.81F,  69.98F};
  EXPECT_EQ(Tables().power_template, expected);
}

TEST(DefaultTables, ACopyHasVectorsOfItsOwn) {
  DefaultTables copy = Tables();
  ASSERT_EQ(copy.env_cogh, Tables().env_cogh);
  copy.env_cogh[64] = -1.0F;
  EXPECT_EQ(Tables().env_cogh[64], 0.13742F);
}

}  // namespace
}  // namespace kerul::lidar
