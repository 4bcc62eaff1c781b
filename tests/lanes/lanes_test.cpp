// The operations of four lanes. Those of eight and sixteen need other instructions than this file
// is compiled for: the hand-worked tests of the kernels run them, in every form.
#include "lanes/lanes.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace kerul::lidar {
namespace {

using V = Lanes<4>;
using Floats = std::array<float, 4>;
using Ints = std::array<std::int32_t, 4>;

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();

Floats List(V::Float value) { return {value[0], value[1], value[2], value[3]}; }
Ints List(V::Int value) { return {value[0], value[1], value[2], value[3]}; }

TEST(PlainLanes, ASplatKeepsTheSignOfZero) {
  for (const float lane : List(V::Splat(-0.0F))) EXPECT_TRUE(std::signbit(lane));
  for (const float lane : List(V::Splat(0.0F))) EXPECT_FALSE(std::signbit(lane));
  EXPECT_EQ(List(V::SplatInt(kLowest)), (Ints{kLowest, kLowest, kLowest, kLowest}));
}

TEST(PlainLanes, TheAbsoluteValueClearsTheSignAlone) {
  EXPECT_EQ(List(V::Abs(V::Float{-3e38F, 3e38F, -INFINITY, -1.5F})),
            (Floats{3e38F, 3e38F, INFINITY, 1.5F}));
  const Floats odd = List(V::Abs(V::Float{-0.0F, -std::nanf(""), 0.0F, -1e-45F}));
  for (const float lane : odd) EXPECT_FALSE(std::signbit(lane));
  EXPECT_TRUE(std::isnan(odd[1]));
  EXPECT_EQ(odd[3], 1e-45F);
}

TEST(PlainLanes, AMaskPicksLaneByLane) {
  const V::Int mask = V::Float{1.0F, 3.0F, std::nanf(""), -1.0F} < 2.0F;
  EXPECT_EQ(List(mask), (Ints{-1, 0, 0, -1}));
  EXPECT_EQ(List(V::Select(mask, V::Splat(5.0F), V::Splat(6.0F))),
            (Floats{5.0F, 6.0F, 6.0F, 5.0F}));
  EXPECT_EQ(List(V::Select(mask, V::SplatInt(7), V::SplatInt(8))), (Ints{7, 8, 8, 7}));
  EXPECT_EQ(V::Bits(mask), 0b1001U);
  EXPECT_TRUE(V::Any(V::Int{0, 0, -1, 0}));
  EXPECT_FALSE(V::Any(V::Int{}));
}

TEST(PlainLanes, TruncationCutsTowardZeroAndMarksWhatDoesNotFit) {
  EXPECT_EQ(List(V::Truncate(V::Float{2.9F, -2.9F, 0.5F, -0.5F})), (Ints{2, -2, 0, 0}));
  EXPECT_EQ(List(V::Truncate(V::Float{3e9F, -3e9F, std::nanf(""), INFINITY})),
            (Ints{kLowest, kLowest, kLowest, kLowest}));
  const V::Double low = {2.9, -2147483649.0};
  const V::Double high = {2147483647.9, -7.5};
  EXPECT_EQ(List(V::Truncate(low, high)), (Ints{2, kLowest, 2147483647, -7}));
}

// 2^24 + 1 lies between two floats, 2^24 + 3 too: the even one is taken.
TEST(PlainLanes, IntegersAreRoundedToTheNearestFloatTiesToEven) {
  EXPECT_EQ(List(V::ToFloat(V::Int{7, -7, 16777217, 16777219})),
            (Floats{7.0F, -7.0F, 16777216.0F, 16777220.0F}));
}

TEST(PlainLanes, TheMaximumIsTheSecondOfTwoWhereNeitherIsLarger) {
  EXPECT_EQ(List(V::Max(V::Int{1, -5, kLowest, 7}, V::Int{2, -6, 0, 7})), (Ints{2, -5, 0, 7}));
  const float nan = std::nanf("");
  EXPECT_EQ(List(V::Max(V::Float{3.0F, -1.0F, nan, 0.5F}, V::Float{2.0F, 0.0F, 4.0F, INFINITY})),
            (Floats{3.0F, 0.0F, 4.0F, INFINITY}));
  const Floats odd = List(V::Max(V::Float{5.0F, -0.0F, 0.0F, 1.0F}, V::Float{nan, 0.0F, -0.0F}));
  EXPECT_TRUE(std::isnan(odd[0]));
  EXPECT_FALSE(std::signbit(odd[1]));
  EXPECT_TRUE(std::signbit(odd[2]));
}

TEST(PlainLanes, TheRootIsRoundedToTheNearestFloat) {
  EXPECT_EQ(List(V::Sqrt(V::Float{4.0F, 0.25F, 2.0F, 0.0F})),
            (Floats{2.0F, 0.5F, 1.41421356F, 0.0F}));
}

TEST(PlainLanes, HalvesAreWidenedExactlyAndRoundedBack) {
  const V::Float value = {1.0F, 0.1F, -3.0F, 4.0F};
  EXPECT_EQ(V::Low(value)[0], 1.0);
  EXPECT_EQ(V::Low(value)[1], static_cast<double>(0.1F));
  EXPECT_EQ(V::High(value)[0], -3.0);
  EXPECT_EQ(V::High(value)[1], 4.0);
  // Half a step above 1 goes down to the even float, three halves go up.
  EXPECT_EQ(List(V::Join(V::Double{1.0 + 0x1p-24, 1.0 + 0x3p-24}, V::Double{0.5, -0.25})),
            (Floats{1.0F, 1.0F + 0x1p-22F, 0.5F, -0.25F}));
}

TEST(PlainLanes, AGatherReadsTheNamedEntries) {
  constexpr float kFloats[] = {10.0F, 11.0F, 12.0F, 13.0F};
  constexpr std::int32_t kInts[] = {20, 21, 22, 23};
  constexpr std::uint16_t kShorts[] = {0x0001, 0x8002, 0x0003, 0x0004, 0x0005};
  const V::Int index = {3, 0, 1, 1};
  EXPECT_EQ(List(V::Gather(kFloats, index)), (Floats{13.0F, 10.0F, 11.0F, 11.0F}));
  EXPECT_EQ(List(V::Gather(kInts, index)), (Ints{23, 20, 21, 21}));
  EXPECT_EQ(List(V::GatherPairs(kShorts, index)),
            (Ints{0x00050004, static_cast<std::int32_t>(0x80020001U), 0x00038002, 0x00038002}));
}

// Four records of 16 bytes: word w of record r is 10 * r + w.
TEST(PlainLanes, WordsOfFourRecordsAreLoadedAndStoredByLane) {
  std::int32_t records[4][4];
  for (std::int32_t r = 0; r < 4; ++r) {
    for (std::int32_t w = 0; w < 4; ++w) records[r][w] = 10 * r + w;
  }
  const std::int32_t offsets[] = {32, 0, 48, 16};
  V::Int words[4];
  LoadWords<4>(reinterpret_cast<const std::uint8_t*>(records), offsets, words);
  EXPECT_EQ(List(words[0]), (Ints{20, 0, 30, 10}));
  EXPECT_EQ(List(words[1]), (Ints{21, 1, 31, 11}));
  EXPECT_EQ(List(words[2]), (Ints{22, 2, 32, 12}));
  EXPECT_EQ(List(words[3]), (Ints{23, 3, 33, 13}));

  std::uint8_t stored[4][20];
  std::memset(stored, 0x5A, sizeof(stored));
  std::uint8_t* const places[] = {stored[0], stored[1], stored[2], stored[3]};
  StoreWords<4>(words[0], V::Float{1.0F, 2.0F, 3.0F, 4.0F}, words[2], words[3], places, 3);
  for (std::size_t lane = 0; lane < 4; ++lane) {
    std::int32_t word;
    std::memcpy(&word, stored[lane] + 3, sizeof(word));
    EXPECT_EQ(word, words[0][lane]) << lane;
    float second;
    std::memcpy(&second, stored[lane] + 7, sizeof(second));
    EXPECT_EQ(second, static_cast<float>(lane + 1)) << lane;
    std::memcpy(&word, stored[lane] + 15, sizeof(word));
    EXPECT_EQ(word, words[3][lane]) << lane;
    for (const int beside : {0, 1, 2, 19}) EXPECT_EQ(stored[lane][beside], 0x5A) << lane;
  }
}

}  // namespace
}  // namespace kerul::lidar
