#include "reference/node.h"

#include <gtest/gtest.h>

#include <random>

#include "reference/test_inputs.h"

namespace reference {
namespace {

// No calibration, no passes: raw ranges go out.
kerul::lidar::DefaultConfig PlainConfig() {
  kerul::lidar::DefaultConfig config;
  config.echo_num = 2;
  config.echo_output_code = 1;
  config.cogw_high_mode = 2;
  config.baseline_samples = 4;
  config.baseline_rise_gate = 550.0F;
  config.baseline_rise_limit = 10.0F;
  return config;
}

RawPlace PlaceOf(int index) {
  return RawPlace{index / 192, index / 48 % 4, index / 8 % 6, index % 8};
}

void FeedRange(Node& node, int first, int last, int frame_id) {
  for (int index = first; index <= last; ++index) {
    const RawPacket raw(PlaceOf(index), frame_id);
    node.Feed(raw.bytes.data(), raw.bytes.size());
  }
}

// Miniflash rows in the order in which they went out.
std::vector<int> RowsOut(const Node& node) {
  std::vector<int> rows;
  for (std::size_t i = 0; i < node.published.size(); i += 48) {
    rows.push_back(node.published[i][207]);
  }
  return rows;
}

TEST(ReferenceNode, AWholeFrameGoesOutRowByRowWithALagOfOne) {
  Node node(PlainConfig(), SensorCalibration{});
  FeedRange(node, 0, 191, 5);
  EXPECT_TRUE(node.published.empty());
  FeedRange(node, 192, 383, 5);
  EXPECT_EQ(RowsOut(node), std::vector<int>({0}));
  FeedRange(node, 384, 6911, 5);
  std::vector<int> all;
  for (int row = 0; row < 36; ++row) all.push_back(row);
  EXPECT_EQ(RowsOut(node), all);
  ASSERT_EQ(node.closed_frames.size(), 1U);
  EXPECT_EQ(node.closed_frames[0].frame_id, 6);
  EXPECT_EQ(node.closed_frames[0].received_count, 6912);
  EXPECT_EQ(node.current_frame_id, 6);
  EXPECT_EQ(node.published[0][209], 0);  // the first frame goes out under 0
}

TEST(ReferenceNode, AHoledRowRunsOnceRowsTwoFurtherDownArrive) {
  Node node(PlainConfig(), SensorCalibration{});
  FeedRange(node, 0, 2 * 192 + 190, 5);  // row 2 lacks its last packet
  EXPECT_EQ(RowsOut(node), std::vector<int>({0}));
  FeedRange(node, 3 * 192, 3 * 192, 5);
  EXPECT_EQ(RowsOut(node), std::vector<int>({0, 1}));
  EXPECT_EQ(node.next_mrow, 2);
  // The late packet completes row 2: nothing new to run.
  FeedRange(node, 2 * 192 + 191, 2 * 192 + 191, 5);
  EXPECT_EQ(RowsOut(node), std::vector<int>({0, 1}));
}

TEST(ReferenceNode, ALateRowSendsTheScheduleBack) {
  Node node(PlainConfig(), SensorCalibration{});
  FeedRange(node, 0, 190, 5);  // row 0 and row 1 lack their last packets
  FeedRange(node, 192, 382, 5);
  FeedRange(node, 384, 5 * 192 - 1, 5);
  EXPECT_EQ(RowsOut(node), std::vector<int>({0, 1, 2, 3}));
  FeedRange(node, 383, 383, 5);
  EXPECT_EQ(node.next_mrow, 1);
  FeedRange(node, 5 * 192, 6 * 192 - 1, 5);
  EXPECT_EQ(RowsOut(node), std::vector<int>({0, 1, 2, 3, 1, 2, 3, 4}));
}

TEST(ReferenceNode, ALaterFrameIdFlushesAndAStragglerStays) {
  Node node(PlainConfig(), SensorCalibration{});
  FeedRange(node, 0, 191, 10);
  FeedRange(node, 192, 192, 9);  // straggler, taken into the frame in hand
  EXPECT_TRUE(node.closed_frames.empty());
  FeedRange(node, 0, 0, 11);
  ASSERT_EQ(node.closed_frames.size(), 1U);
  EXPECT_EQ(node.closed_frames[0].frame_id, 11);
  EXPECT_EQ(node.closed_frames[0].received_count, 193);
  EXPECT_EQ(RowsOut(node).size(), 36U);
  EXPECT_EQ(node.frame.received_count, 1);
  EXPECT_EQ(node.frame.frame_id, 11);
}

TEST(ReferenceNode, AWrappedCounterIsALaterFrameFrom201On) {
  Node node(PlainConfig(), SensorCalibration{});
  FeedRange(node, 0, 0, 250);
  FeedRange(node, 1, 1, 50);
  EXPECT_TRUE(node.closed_frames.empty());
  FeedRange(node, 2, 2, 49);
  EXPECT_EQ(node.closed_frames.size(), 1U);
}

TEST(ReferenceNode, APulseComesOutAsARange) {
  Node node(PlainConfig(), SensorCalibration{});
  RawPacket raw(PlaceOf(0), 1);
  raw.SetSample(0, 1, 92);
  raw.SetSample(0, 10 + 7, 50);
  raw.SetSample(0, 10 + 8, 100);
  raw.SetSample(0, 10 + 9, 50);
  node.Feed(raw.bytes.data(), raw.bytes.size());
  // A short datagram with another slot parses with the old bytes behind it: the same packet again.
  node.Feed(raw.bytes.data(), 20);
  EXPECT_EQ(node.frame.received_count, 2);
  FeedRange(node, 1, 383, 1);
  ASSERT_EQ(node.published.size(), 48U);
  const int distance = node.published[0][20] + 256 * node.published[0][21];
  EXPECT_NEAR(distance, 3750, 1);  // 15 m in units of 4 mm
  EXPECT_EQ(node.published[0][22], 0);
  const int height = 77;
  EXPECT_EQ(node.published[0][23], height % 4 + 40);
  EXPECT_EQ(node.published[0][24], height / 4);
}

// Every pixel of the frame sees the same pulse.
void FeedWall(Node& node) {
  for (int index = 0; index < 6912; ++index) {
    RawPacket raw(PlaceOf(index), 1);
    for (int block = 0; block < 9; ++block) {
      raw.SetSample(block, 1, 92);
      raw.SetSample(block, 10 + 7, 50);
      raw.SetSample(block, 10 + 8, 100);
      raw.SetSample(block, 10 + 9, 50);
    }
    node.Feed(raw.bytes.data(), raw.bytes.size());
  }
}

TEST(ReferenceNode, AWallKeepsItsCalibratedRangeThroughAllPasses) {
  kerul::lidar::DefaultConfig config = PlainConfig();
  config.calib_enable = true;
  config.neighbor_check_enable = true;
  config.ground_enable = true;
  config.shot_noise_enable = true;
  config.shot_noise_dist_gate = 1.0F;
  config.high_ref_blooming = true;
  config.blooming_filter_enable = true;
  config.bloom_suppress_calib.threshold = 235.0F;
  config.tables.detect_threshold = {100};
  SensorCalibration calibration;
  calibration.dist_curve.assign(512, 0.0F);
  calibration.dist_offset.assign(82944, 64.0F);
  calibration.dist_offset[(1 * 48 + 2) * 36 + 2 * 6 + 3] = 0.0F;  // row 9, column 14
  calibration.retro_curve.assign(512, 3.0F);
  calibration.retro_scale.assign(82944, 4.0F);
  Node node(config, calibration);
  FeedWall(node);
  ASSERT_EQ(node.published.size(), 1728U);
  const PublishedPacket& packet = node.published[48 + 2];  // rows 6 to 11, columns 12 to 17
  int compared = 0;
  for (std::size_t i = 0; i < 36; ++i) {
    const int distance = packet[20 + 5 * i] + 256 * packet[21 + 5 * i];
    // 15 m less 64 / 64 of 0.1499 m; the pixel without calibration is filled by its neighbours.
    EXPECT_NEAR(distance, (15.0 - 0.14989623) / 0.004, 1.0) << i;
    // 2^(2 log2(14.8501 / 0.14989623) + 3 - 4 - 6) is 76.7.
    EXPECT_NEAR(packet[22 + 5 * i], 76, 1) << i;
    ++compared;
  }
  EXPECT_EQ(compared, 36);
}

TEST(ReferenceNode, TwoPacketsToABlockCountWithoutAGap) {
  kerul::lidar::DefaultConfig config = PlainConfig();
  config.echo_output_code = 12;
  Node node(config, SensorCalibration{});
  RawPacket first(PlaceOf(0), 1);
  first.bytes[688] = 100;
  node.Feed(first.bytes.data(), first.bytes.size());
  FeedRange(node, 1, 6911, 1);
  ASSERT_EQ(node.published.size(), 3456U);
  for (std::size_t i = 0; i < node.published.size(); ++i) {
    const PublishedPacket& packet = node.published[i];
    ASSERT_EQ(static_cast<std::size_t>(packet[225] + 256 * packet[226]), 100 + i);
    ASSERT_EQ(packet[12], i % 2 + 1);
  }
}

kerul::lidar::DefaultConfig EverythingOn() {
  kerul::lidar::DefaultConfig config = PlainConfig();
  config.calib_enable = true;
  config.echo_output_code = 12;
  config.output_mode = 3;
  config.clip_side_peaks = true;
  config.neighbor_check_enable = true;
  config.ground_enable = true;
  config.ground_plane_enable = true;
  config.ground_vert_seed_enable = true;
  config.ground_smooth_enable = true;
  config.shot_noise_enable = true;
  config.shot_noise_dist_gate = 1.0F;
  config.high_ref_blooming = true;
  config.blooming_filter_enable = true;
  config.bloom_suppress_calib.threshold = 235.0F;
  config.bloom_suppress_calib.dist_gate_m = 0.2F;
  config.bloom_suppress_calib.pattern_enabled = true;
  config.bloom_suppress_calib.dist_pattern_enabled = true;
  config.tables.detect_threshold = {100, 200};
  config.tables.shot_times.assign(40, 288.0F);
  config.tables.env_cogh.assign(1024, 0.1F);
  config.tables.env_cogh_high.assign(1024, 0.2F);
  config.tables.cogw_a.assign(641, 4.0F);
  config.tables.cogw_b.assign(641, 5.0F);
  config.tables.cogw_c.assign(641, 3.0F);
  config.tables.high_threshold_cogh_in = {0.0F, 500.0F};
  config.tables.high_threshold_cogh_out = {0.0F, 490.0F};
  config.tables.retro_filter.assign(31, 1.0F);
  config.tables.cogh_efficiant.assign(600, 2.0F);
  return config;
}

TEST(ReferenceNode, RandomBytesBehindASoundHeaderAreSurvived) {
  SensorCalibration calibration;
  calibration.dist_curve.assign(512, 1.0F);
  calibration.dist_curve_high.assign(512, 2.0F);
  calibration.dist_offset.assign(82944, 64.0F);
  calibration.retro_curve.assign(512, 3.0F);
  calibration.retro_scale.assign(82944, 4.0F);
  Node node(EverythingOn(), calibration);
  std::mt19937 random(7);
  for (int i = 0; i < 8000; ++i) {
    RawPacket raw(PlaceOf(i % 6912), 1 + i / 6912);
    for (std::size_t at = 20; at < 668; ++at) raw.bytes[at] = static_cast<std::uint8_t>(random());
    const bool wild = i % 16 == 0;
    if (wild) raw.bytes[671 + random() % 4] = static_cast<std::uint8_t>(random());
    const std::size_t length = wild ? random() % 1600 : raw.bytes.size();
    std::vector<std::uint8_t> datagram(length, 0xAA);
    for (std::size_t at = 0; at < length && at < raw.bytes.size(); ++at)
      datagram[at] = raw.bytes[at];
    node.Feed(datagram.data(), datagram.size());
  }
  EXPECT_GE(node.closed_frames.size(), 1U);
  EXPECT_GE(node.published.size(), 3456U);
}

}  // namespace
}  // namespace reference
