#include "lidar_web/figures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kerul::lidar::web {
namespace {

using std::chrono::milliseconds;
using TimePoint = std::chrono::steady_clock::time_point;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr TimePoint kNow{std::chrono::seconds(1000)};

StreamFigures SomeStream() {
  StreamFigures stream;
  stream.counts = {.complete = 99,
                   .incomplete = 2,
                   .missing_frames = 3,
                   .packets = 171072,
                   .invalid = 4,
                   .lost_packets = 5,
                   .restarts = 6};
  stream.missing_blocks = 7;
  stream.frames_per_s = 10.0;
  stream.packets_per_s = 17280.0;
  stream.recent_latency_s = 0.00123;
  stream.last_packet = kNow - milliseconds(20);
  stream.last_complete = kNow - milliseconds(2000);
  stream.source = "ring /r";
  stream.source_ok = true;
  return stream;
}

HostFigures SomeHost() {
  HostFigures host;
  host.before_host = 8;
  host.kernel_drops = 9;
  host.node = ProcessFigures{.pid = 4711, .resident_bytes = 45000000, .cpu_seconds = 3.5};
  host.started = kNow - milliseconds(12000);
  host.clock_us = 1700000000250000;
  host.clients = 1;
  return host;
}

TEST(WebFigures, FiguresAreTheDocumentedText) {
  EXPECT_EQ(FormatFigures(SomeStream(), SomeHost(), kNow),
            "{\"type\":\"figures\",\"clock_us\":1700000000250000,\"uptime_s\":12.0,"
            "\"source\":\"ring /r\",\"source_ok\":true,\"frames_per_s\":10.00,"
            "\"packets_per_s\":17280.0,\"latency_ms\":1.230,\"silent_s\":0.020,\"clients\":1,"
            "\"frames\":{\"complete\":99,\"incomplete\":2,\"missing\":3},"
            "\"lost\":{\"before_host\":8,\"kernel\":9,\"ring\":5},"
            "\"packets\":171072,\"invalid\":4,\"missing_blocks\":7,\"restarts\":6,"
            "\"node\":{\"pid\":4711,\"resident_bytes\":45000000,\"cpu_seconds\":3.50}}");
}

TEST(WebFigures, WhatNobodyTellsIsNull) {
  StreamFigures stream;
  stream.source = "ring \"odd\"\n\\";
  HostFigures host;
  host.started = kNow;
  EXPECT_EQ(FormatFigures(stream, host, kNow),
            "{\"type\":\"figures\",\"clock_us\":0,\"uptime_s\":0.0,"
            "\"source\":\"ring \\\"odd\\\"\\u000a\\\\\",\"source_ok\":false,\"frames_per_s\":0.00,"
            "\"packets_per_s\":0.0,\"latency_ms\":null,\"silent_s\":null,\"clients\":0,"
            "\"frames\":{\"complete\":0,\"incomplete\":0,\"missing\":0},"
            "\"lost\":{\"before_host\":null,\"kernel\":null,\"ring\":0},"
            "\"packets\":0,\"invalid\":0,\"missing_blocks\":0,\"restarts\":0,\"node\":null}");
}

TEST(WebFigures, HelloTellsTheShapeAndTheDirections) {
  EXPECT_EQ(FormatHello({.source = "UDP port 7",
                         .directions = "a.dat",
                         .default_directions = false,
                         .mounted = true,
                         .stories = true}),
            "{\"type\":\"hello\",\"protocol\":1,\"version\":\"0.1.0\",\"rows\":216,\"cols\":288,"
            "\"source\":\"UDP port 7\",\"directions\":\"a.dat\",\"default_directions\":false,"
            "\"mounted\":true,\"stories\":true}");
}

TEST(WebFigures, HealthNeedsACompleteFrameInTheLastTwoSeconds) {
  StreamFigures stream = SomeStream();
  EXPECT_TRUE(CheckHealth(stream, kNow).ok);
  EXPECT_EQ(CheckHealth(stream, kNow).line, "ok\n");
  const Health late = CheckHealth(stream, kNow + milliseconds(1));
  EXPECT_FALSE(late.ok);
  EXPECT_EQ(late.line, "no complete frame for 2.0 s from ring /r\n");
  stream.last_complete.reset();
  EXPECT_EQ(CheckHealth(stream, kNow).line, "no complete frame yet from ring /r\n");
}

TEST(WebFigures, LatenciesFallIntoTheBucketThatEndsAtOrAboveThem) {
  LatencyHistogram latency;
  for (const double seconds : {0.0, 0.001, 0.0011, 5.0, 5.1}) latency.Take(seconds);
  EXPECT_EQ(latency.counts.front(), 2U);
  EXPECT_EQ(latency.counts[1], 1U);
  EXPECT_EQ(latency.counts[kLatencyLimits.size() - 1], 1U);
  EXPECT_EQ(latency.counts.back(), 1U);
  EXPECT_DOUBLE_EQ(latency.sum_s, 10.1021);
}

TEST(WebFigures, MetricsTellLossByPlaceAndCountBucketsUp) {
  StreamFigures stream = SomeStream();
  stream.latency.Take(0.0005);
  stream.latency.Take(0.0015);
  const std::string text = FormatMetrics(stream, SomeHost(), kNow);
  for (const char* line :
       {"kerul_lidar_frames_total{state=\"complete\"} 99\n",
        "kerul_lidar_frames_total{state=\"incomplete\"} 2\n",
        "kerul_lidar_missing_frames_total 3\n", "kerul_lidar_point_packets_total 171072\n",
        "kerul_lidar_point_packet_bytes_total 42596928\n",  // 249 each
        "kerul_lidar_lost_raw_packets_total{place=\"before_host\"} 8\n",
        "kerul_lidar_lost_raw_packets_total{place=\"kernel\"} 9\n",
        "kerul_lidar_lost_point_packets_total{place=\"ring\"} 5\n",
        "kerul_lidar_frame_latency_seconds_bucket{le=\"0.001\"} 1\n",
        "kerul_lidar_frame_latency_seconds_bucket{le=\"0.002\"} 2\n",
        "kerul_lidar_frame_latency_seconds_bucket{le=\"+Inf\"} 2\n",
        "kerul_lidar_frame_latency_seconds_count 2\n", "kerul_lidar_node_up 1\n",
        "kerul_lidar_node_resident_memory_bytes 45000000\n",
        "kerul_lidar_node_cpu_seconds_total 3.5\n", "kerul_lidar_web_clients 1\n"}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
}

TEST(WebFigures, MetricsLeaveOutWhatNobodyTells) {
  StreamFigures stream;
  stream.by_udp = true;
  const std::string text = FormatMetrics(stream, HostFigures{}, kNow);
  EXPECT_THAT(text, Not(HasSubstr("lost_raw_packets")));
  EXPECT_THAT(text, Not(HasSubstr("node_resident")));
  EXPECT_THAT(text, Not(HasSubstr("silence")));
  EXPECT_THAT(text, HasSubstr("kerul_lidar_node_up 0\n"));
  EXPECT_THAT(text, HasSubstr("kerul_lidar_lost_point_packets_total{place=\"udp\"} 0\n"));
}

}  // namespace
}  // namespace kerul::lidar::web
