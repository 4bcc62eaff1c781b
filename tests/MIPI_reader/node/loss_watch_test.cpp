#include "MIPI_reader/node/loss_watch.h"

#include <gtest/gtest.h>

#include <chrono>

namespace kerul::lidar {
namespace {

using namespace std::chrono_literals;

class LossWatching : public testing::Test {
 protected:
  LossWatching() { Look({.packets = 100, .kernel_dropped = 7}, 0ms); }  // joins

  static LossWatch::ClosedFrame Whole() { return {.frame_id = 9, .packets = 6912}; }

  std::string Look(LossWatch::ClosedFrame frame, std::chrono::milliseconds at) {
    frame.packets_of_frame = 6912;
    if (frame.kernel_dropped == 0) frame.kernel_dropped = 7;
    return watch_.Look(frame, start_ + at);
  }

  LossWatch watch_;
  const LossWatch::TimePoint start_ = std::chrono::steady_clock::now();
};

TEST_F(LossWatching, WholeFramesGiveNoLine) {
  for (int i = 0; i < 100; ++i) EXPECT_EQ(Look(Whole(), i * 100ms), "");
  EXPECT_EQ(watch_.Rest(), "");
}

TEST_F(LossWatching, AShortFrameIsToldInFigures) {
  EXPECT_EQ(Look({.frame_id = 12, .packets = 3640}, 0ms),
            "raw packets lost in 1 frames: 1 of them closed without 3272 packets (the last, "
            "frame_id 12, with 3640 of 6912), 0 frame ids never came, 0 datagrams dropped by the "
            "kernel");
}

TEST_F(LossWatching, OneMissingPacketIsALoss) {
  EXPECT_NE(Look({.frame_id = 12, .packets = 6911}, 0ms), "");
}

TEST_F(LossWatching, SkippedIdsAreLossesOfWholeFrames) {
  LossWatch::ClosedFrame frame = Whole();
  frame.skipped_ids = 3;
  EXPECT_EQ(Look(frame, 0ms),
            "raw packets lost in 1 frames: 0 of them closed without 0 packets, 3 frame ids never "
            "came, 0 datagrams dropped by the kernel");
}

TEST_F(LossWatching, OnlyAGrowingDropCounterIsALoss) {
  LossWatch::ClosedFrame frame = Whole();
  frame.kernel_dropped = 411599;
  EXPECT_EQ(Look(frame, 0ms),
            "raw packets lost in 1 frames: 0 of them closed without 0 packets, 0 frame ids never "
            "came, 411592 datagrams dropped by the kernel");
  EXPECT_EQ(Look(frame, 5000ms), "");
  frame.kernel_dropped = 2;  // another socket
  EXPECT_NE(Look(frame, 9000ms).find(", 2 datagrams dropped"), std::string::npos);
}

TEST_F(LossWatching, AtMostOneLineASecondAndTheNextOneHoldsWhatWasHeldBack) {
  EXPECT_NE(Look({.frame_id = 1, .packets = 6911}, 0ms), "");
  EXPECT_EQ(Look({.frame_id = 2, .packets = 6910}, 100ms), "");
  EXPECT_EQ(Look({.frame_id = 3, .packets = 6909}, 999ms), "");
  EXPECT_EQ(Look(Whole(), 1000ms),
            "raw packets lost in 3 frames: 2 of them closed without 5 packets (the last, frame_id "
            "3, with 6909 of 6912), 0 frame ids never came, 0 datagrams dropped by the kernel");
  EXPECT_EQ(Look(Whole(), 5000ms), "");
}

TEST_F(LossWatching, WhatIsHeldBackAtTheEndIsNotLost) {
  EXPECT_NE(Look({.frame_id = 1, .packets = 6911}, 0ms), "");
  EXPECT_EQ(Look({.frame_id = 2, .packets = 6910}, 100ms), "");
  EXPECT_NE(watch_.Rest().find("closed without 2 packets"), std::string::npos);
  EXPECT_EQ(watch_.Rest(), "");
}

TEST_F(LossWatching, TheFrameInWhichAReplayBeginsAgainMayBeShort) {
  watch_.Restart();
  EXPECT_EQ(Look({.frame_id = 1, .packets = 10}, 0ms), "");
  EXPECT_NE(Look({.frame_id = 2, .packets = 10}, 0ms), "");
}

}  // namespace
}  // namespace kerul::lidar
