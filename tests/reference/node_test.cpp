// The reference from datagrams to published packets, by hand. Its single steps are checked through
// the node's hand-worked tests: tests/differential compares the two.
#include "reference/node.h"

#include <gtest/gtest.h>

#include "support/raw_packet_builder.h"

namespace reference {
namespace {

using kerul::lidar::testing::kPacketsPerFrame;
using kerul::lidar::testing::MakeRawPacket;
using kerul::lidar::testing::RawPixel;

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

// Every pixel sees the same pulse: 50, 100, 50 around bin 100, at 15 m.
void FeedWall(Node& node, int packets) {
  RawPixel pixel;
  pixel.SetPulse(0, 92, 100, 0);
  for (int index = 0; index < packets; ++index) {
    const kerul::lidar::UdpPacket packet = MakeRawPacket(1, index, pixel);
    node.Feed(packet.buffer, packet.length);
  }
}

TEST(ReferenceNode, APulseComesOutAsARange) {
  Node node(PlainConfig(), SensorCalibration{});
  FeedWall(node, 384);  // two miniflash rows: the first goes out
  ASSERT_EQ(node.published.size(), 48U);
  const int distance = node.published[0][20] + 256 * node.published[0][21];
  EXPECT_NEAR(distance, 3750, 1);  // 15 m in units of 4 mm
  EXPECT_EQ(node.published[0][22], 0);
  const int height = 77;
  EXPECT_EQ(node.published[0][23], height % 4 + 40);
  EXPECT_EQ(node.published[0][24], height / 4);
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
  FeedWall(node, kPacketsPerFrame);
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

}  // namespace
}  // namespace reference
