#include "lidar_record/progress.h"

#include <gtest/gtest.h>

namespace kerul::lidar::record {
namespace {

FrameStreamCounts StreamCounts() {
  FrameStreamCounts counts;
  counts.incomplete = 3;
  counts.missing_frames = 4;
  counts.lost_packets = 5;
  return counts;
}

RecorderState State() {
  RecorderState state;
  state.messages = 118;
  state.bytes = 74'160'000;
  state.files = 1;
  state.path = "a.mcap";
  state.kept_bytes = 62'000'000;
  state.kept_seconds = 9.96;
  return state;
}

TEST(RecordProgress, ARecordingTellsWhatIsWritten) {
  EXPECT_EQ(
      FormatProgress({120, 2}, StreamCounts(), State(), false),
      "frames 120  left out 2  incomplete 3  missing 4  lost 5  written 74.2 MB  file a.mcap");
  EXPECT_EQ(FormatProgress({}, {}, {}, false),
            "frames 0  left out 0  incomplete 0  missing 0  lost 0  written 0.0 MB");
}

TEST(RecordProgress, WhatIsKeptForASignalIsToldInSecondsAndBytes) {
  EXPECT_EQ(
      FormatProgress({120, 2}, StreamCounts(), State(), true),
      "frames 120  left out 2  incomplete 3  missing 4  lost 5  kept 10.0 s, 62.0 MB  files 1");
}

TEST(RecordProgress, TheEndTellsAllOfIt) {
  EXPECT_EQ(FormatEnd({120, 2}, StreamCounts(), State()),
            "118 frames, 74.2 MB in 1 file; left out 2, incomplete 3, missing 4, lost 5");
  EXPECT_EQ(FormatEnd({}, {}, {}),
            "0 frames, 0.0 MB in 0 files; left out 0, incomplete 0, missing 0, lost 0");
}

}  // namespace
}  // namespace kerul::lidar::record
