#include "kerul_lidar/sequence_tracker.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace kerul::lidar {
namespace {

SequenceTracker After(std::initializer_list<std::uint32_t> sequence) {
  SequenceTracker tracker;
  for (const std::uint32_t number : sequence) tracker.Take(number);
  return tracker;
}

TEST(SequenceTracker, ACountWithoutGapLosesNothing) {
  const SequenceTracker tracker = After({500, 501, 502});
  EXPECT_EQ(tracker.lost, 0U);
  EXPECT_EQ(tracker.late, 0U);
}

TEST(SequenceTracker, GapsAreCounted) { EXPECT_EQ(After({1, 2, 5, 10}).lost, 2U + 4U); }

TEST(SequenceTracker, TheCountWraps) {
  EXPECT_EQ(After({0xFFFFFFFE, 0xFFFFFFFF, 0, 1}).lost, 0U);
  EXPECT_EQ(After({0xFFFFFFFE, 1}).lost, 2U);
}

TEST(SequenceTracker, StragglersAndRepeatsAreLateNotLost) {
  const SequenceTracker tracker = After({10, 11, 11, 9, 12});
  EXPECT_EQ(tracker.lost, 0U);
  EXPECT_EQ(tracker.late, 2U);
  EXPECT_EQ(tracker.begun_anew, 0U);
}

TEST(SequenceTracker, ANewCountIsNoLoss) {
  const SequenceTracker down = After({2000000, 0, 1, 3});
  EXPECT_EQ(down.lost, 1U);
  EXPECT_EQ(down.begun_anew, 1U);
  const SequenceTracker up = After({5, 3000000000U, 3000000001U});
  EXPECT_EQ(up.lost, 0U);
  EXPECT_EQ(up.begun_anew, 1U);
  EXPECT_EQ(up.newest, 3000000001U);
}

TEST(SequenceTracker, TheLargestGapIsStillALoss) {
  EXPECT_EQ(After({0, SequenceTracker::kLargestGap}).lost, SequenceTracker::kLargestGap - 1);
  EXPECT_EQ(After({0, SequenceTracker::kLargestGap + 1}).lost, 0U);
}

}  // namespace
}  // namespace kerul::lidar
