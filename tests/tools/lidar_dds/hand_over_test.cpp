#include "lidar_dds/hand_over.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace kerul::lidar::dds {
namespace {

using std::chrono::milliseconds;

MessageSet Numbered(std::uint8_t number) {
  MessageSet set;
  set[kCloud] = {number};
  return set;
}

void Put(HandOver& frames, std::uint8_t number) {
  MessageSet set = Numbered(number);
  frames.Put(set);
}

TEST(HandOver, FramesComeOutInTheOrderInWhichTheyWerePut) {
  HandOver frames(2);
  MessageSet set;
  for (std::uint8_t number = 1; number < 6; ++number) {
    Put(frames, number);
    ASSERT_TRUE(frames.Take(set, milliseconds(0)));
    EXPECT_EQ(set, Numbered(number));
  }
  EXPECT_FALSE(frames.Take(set, milliseconds(0)));
  EXPECT_EQ(frames.LeftOut(), 0U);
}

TEST(HandOver, TheOldestMakesRoomForTheNewestAndIsCounted) {
  HandOver frames(2);
  for (std::uint8_t number = 1; number <= 5; ++number) Put(frames, number);
  EXPECT_EQ(frames.LeftOut(), 3U);
  MessageSet set;
  ASSERT_TRUE(frames.Take(set, milliseconds(0)));
  EXPECT_EQ(set, Numbered(4));
  ASSERT_TRUE(frames.Take(set, milliseconds(0)));
  EXPECT_EQ(set, Numbered(5));
  EXPECT_FALSE(frames.Take(set, milliseconds(0)));
}

TEST(HandOver, WhatWasPutIsStillTakenAfterTheEndAndNothingMoreIsPut) {
  HandOver frames(2);
  Put(frames, 1);
  frames.Close();
  Put(frames, 2);
  EXPECT_FALSE(frames.IsOver());
  MessageSet set;
  ASSERT_TRUE(frames.Take(set, milliseconds(0)));
  EXPECT_EQ(set, Numbered(1));
  EXPECT_TRUE(frames.IsOver());
  EXPECT_FALSE(frames.Take(set, milliseconds(0)));
}

TEST(HandOver, AWaitingTakerWakesWithAFrameAndWithTheEnd) {
  HandOver frames(1);
  const auto start = std::chrono::steady_clock::now();
  const milliseconds for_ever{60'000};
  std::thread taker([&] {
    MessageSet set;
    EXPECT_TRUE(frames.Take(set, for_ever));
    EXPECT_FALSE(frames.Take(set, for_ever));
  });
  std::this_thread::sleep_for(milliseconds(10));
  Put(frames, 1);
  while (!frames.IsOver()) {
    std::this_thread::sleep_for(milliseconds(10));
    frames.Close();
  }
  taker.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, for_ever);
}

}  // namespace
}  // namespace kerul::lidar::dds
