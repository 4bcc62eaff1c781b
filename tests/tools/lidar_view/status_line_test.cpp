#include "lidar_view/status_line.h"

#include <gtest/gtest.h>

namespace kerul::lidar::view {
namespace {

TEST(StatusLine, RatesAreOfTheIntervalLossIsTotal) {
  ViewCounts before;
  before.complete = 100;
  before.incomplete = 2;
  before.packets = 1000;
  before.latency_sum_ms = 50.0;
  ViewCounts now = before;
  now.complete = 118;
  now.incomplete = 4;
  now.packets = 1400;
  now.missing = 3;
  now.lost = 7;
  now.latency_sum_ms = 250.0;
  EXPECT_EQ(FormatStatus(before, now, 2.0),
            "frames/s 10.0  packets/s 200  lost 7  incomplete 4  missing 3  latency 0.50 ms");
}

TEST(StatusLine, InvalidDatagramsAreToldOfIfThereAreAny) {
  ViewCounts now;
  now.invalid = 3;
  EXPECT_EQ(
      FormatStatus({}, now, 1.0),
      "frames/s 0.0  packets/s 0  lost 0  incomplete 0  missing 0  latency 0.00 ms  invalid 3");
}

TEST(StatusLine, NoTimeIsNoRate) {
  ViewCounts now;
  now.packets = 5;
  EXPECT_EQ(FormatStatus({}, now, 0.0),
            "frames/s 0.0  packets/s 0  lost 0  incomplete 0  missing 0  latency 0.00 ms");
}

TEST(Summary, HoldsAllCountsAsKeysAndValues) {
  ViewCounts counts;
  counts.complete = 95;
  counts.incomplete = 5;
  counts.missing = 2;
  counts.packets = 1000;
  counts.invalid = 1;
  counts.lost = 17;
  counts.latency_sum_ms = 1250.0;
  EXPECT_EQ(
      FormatSummary(counts, 10.0),
      "frames=100\ncomplete=95\nincomplete=5\nmissing_frames=2\npackets=1000\ninvalid=1\nlost=17\n"
      "seconds=10.00\nframes_per_s=10.00\nlatency_ms=1.25\n");
}

}  // namespace
}  // namespace kerul::lidar::view
