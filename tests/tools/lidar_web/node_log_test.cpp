#include "lidar_web/node_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "MIPI_reader/node/loss_watch.h"
#include "support/temp_dir.h"

namespace kerul::lidar::web {
namespace {

std::string LossLine(int packets, int frames, int dropped) {
  return "raw packets lost in 10 frames: 3 of them closed without " + std::to_string(packets) +
         " packets (the last, frame_id 7, with 6900 of 6912), " + std::to_string(frames) +
         " frame ids never came, " + std::to_string(dropped) + " datagrams dropped by the kernel\n";
}

TEST(NodeLog, ALineOfTheNodeIsRead) {
  LossWatch watch;
  const LossWatch::TimePoint now{};
  watch.Look({.frame_id = 1, .packets = 6912, .packets_of_frame = 6912}, now);
  const std::string line = watch.Look({.frame_id = 2,
                                       .packets = 6900,
                                       .packets_of_frame = 6912,
                                       .skipped_ids = 3,
                                       .kernel_dropped = 5},
                                      now);
  const std::optional<RawLoss> loss = ReadLossLine(line);
  ASSERT_TRUE(loss.has_value()) << line;
  EXPECT_EQ(loss->missing_packets, 12U);
  EXPECT_EQ(loss->missing_frames, 3U);
  EXPECT_EQ(loss->kernel_dropped, 5U);
}

TEST(NodeLog, ALineMayHaveADateBeforeItAndNoShortFrame) {
  const std::optional<RawLoss> loss = ReadLossLine(
      "Nov 22 08:00:00 car lidar_node[9]: raw packets lost in 2 frames: 0 of them closed without 0 "
      "packets, 1 frame ids never came, 0 datagrams dropped by the kernel");
  ASSERT_TRUE(loss.has_value());
  EXPECT_EQ(loss->missing_packets, 0U);
  EXPECT_EQ(loss->missing_frames, 1U);
}

TEST(NodeLog, OtherLinesTellNothing) {
  for (const char* line :
       {"", "received_count:6912", "raw packets lost in 2 frames: ",
        "raw packets lost in 2 frames: 1 of them closed without x packets, 1 frame ids never came, "
        "0 "
        "datagrams dropped by the kernel",
        "raw packets lost in 2 frames: 1 of them closed without 99999999999999999999 packets, 1 "
        "frame ids never came, 0 datagrams dropped by the kernel"}) {
    EXPECT_FALSE(ReadLossLine(line).has_value()) << line;
  }
}

TEST(NodeLog, WhatTheKernelDroppedWasNotLostBeforeTheHost) {
  LossTotals totals;
  totals.Take(LossLine(100, 2, 0));
  EXPECT_EQ(totals.BeforeHost(), 100U + 2 * 6912);
  totals.Take(LossLine(50, 0, 50));
  EXPECT_EQ(totals.BeforeHost(), 100U + 2 * 6912);
  totals.Take(LossLine(0, 0, 30));  // missed by the next frame only
  EXPECT_EQ(totals.BeforeHost(), 100U + 2 * 6912) << "never falls";
  totals.Take(LossLine(31, 0, 0));
  EXPECT_EQ(totals.BeforeHost(), 101U + 2 * 6912);
}

TEST(NodeLog, LinesMayComeInPieces) {
  const std::string text = "other\n" + LossLine(7, 0, 0) + LossLine(4, 0, 0);
  for (std::size_t size = 1; size < 50; ++size) {
    LossTotals totals;
    for (std::size_t at = 0; at < text.size(); at += size) totals.Take(text.substr(at, size));
    EXPECT_EQ(totals.BeforeHost(), 11U) << size;
  }
}

TEST(NodeLog, LinesWithoutEndArePassedOver) {
  LossTotals totals;
  const std::string megabyte(1 << 20, 'x');
  for (int i = 0; i < 4; ++i) totals.Take(megabyte);
  totals.Take("\n" + LossLine(7, 0, 0));
  EXPECT_EQ(totals.BeforeHost(), 7U);
}

TEST(NodeLog, AFileIsFollowedAndReadAnewWhenItWasReplaced) {
  const testing::TempDir folder;
  const std::string path = folder.File("node.log");
  NodeLog log(path);
  log.Look();
  EXPECT_EQ(log.BeforeHost(), std::nullopt) << "not there yet";
  folder.Write("node.log", LossLine(5, 0, 0));
  log.Look();
  EXPECT_EQ(log.BeforeHost(), 5U);
  std::ofstream(path, std::ios::app) << LossLine(3, 0, 1);
  log.Look();
  EXPECT_EQ(log.BeforeHost(), 7U);
  // Another node's log under the same name: shorter, then a new file.
  folder.Write("node.log", "x\n");
  log.Look();
  std::ofstream(path, std::ios::app) << LossLine(2, 0, 0);
  log.Look();
  EXPECT_EQ(log.BeforeHost(), 9U);
  folder.Write("next.log", LossLine(10, 0, 0) + std::string(1000, '\n'));
  std::filesystem::rename(folder.File("next.log"), path);
  log.Look();
  EXPECT_EQ(log.BeforeHost(), 19U);
}

}  // namespace
}  // namespace kerul::lidar::web
