#include "kerul_lidar/frame_id_tracker.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace kerul::lidar {
namespace {

FrameIdTracker Follow(std::initializer_list<int> ids) {
  FrameIdTracker tracker;
  for (const int id : ids) tracker.Take(static_cast<std::uint8_t>(id));
  return tracker;
}

TEST(FrameIdTracker, NothingIsMissingInARowThatWraps) {
  const FrameIdTracker tracker = Follow({253, 254, 255, 0, 1});
  EXPECT_EQ(tracker.missing, 0U);
  EXPECT_EQ(tracker.backwards, 0U);
}

TEST(FrameIdTracker, EachIdPassedOverIsMissing) {
  FrameIdTracker tracker;
  EXPECT_EQ(tracker.Take(5), 0) << "nothing is known of what came before";
  EXPECT_EQ(tracker.Take(9), 3);
  EXPECT_EQ(tracker.Take(10), 0);
  EXPECT_EQ(tracker.Take(12), 1);
  EXPECT_EQ(tracker.missing, 4U);
  EXPECT_EQ(Follow({250, 2}).missing, 7U);
}

TEST(FrameIdTracker, TheSameIdAgainIsNoGap) {
  const FrameIdTracker tracker = Follow({3, 3, 4});
  EXPECT_EQ(tracker.missing, 0U);
  EXPECT_EQ(tracker.backwards, 0U);
}

TEST(FrameIdTracker, AStepOfUpTo128IsForward) {
  EXPECT_EQ(Follow({1, 129}).missing, 127U);
  EXPECT_EQ(Follow({1, 130}).missing, 0U);
  EXPECT_EQ(Follow({1, 130}).backwards, 1U);
  EXPECT_EQ(Follow({10, 9, 10}).missing, 0U);
  EXPECT_EQ(Follow({10, 9, 11}).missing, 1U) << "counted from the frame before";
}

TEST(FrameIdTracker, TheFirstFrameOfANodeSaysNothingOfTheNext) {
  // Published under 0 whatever its id.
  EXPECT_EQ(Follow({0, 77, 78}).missing, 0U);
  EXPECT_EQ(Follow({0, 77, 79}).missing, 1U);
  EXPECT_EQ(Follow({0, 200}).backwards, 0U);
  // Another node, unannounced: 60 to 0 is backwards.
  EXPECT_EQ(Follow({59, 60, 0, 90, 91}).missing, 0U);
  EXPECT_EQ(Follow({254, 0, 2}).missing, 2U) << "an ordinary 0 is counted from";
}

TEST(FrameIdTracker, ARestartForgetsTheIdAndKeepsTheCounts) {
  FrameIdTracker tracker = Follow({1, 3});
  tracker.Restart();
  EXPECT_EQ(tracker.Take(50), 0);
  EXPECT_EQ(tracker.Take(52), 1);
  EXPECT_EQ(tracker.missing, 2U);
}

}  // namespace
}  // namespace kerul::lidar
