#include "reference/parser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "reference/test_inputs.h"

namespace reference {
namespace {

UdpPacket Load(const RawPacket& raw) {
  UdpPacket packet{};
  for (std::size_t i = 0; i < raw.bytes.size(); ++i) packet.buffer[i] = raw.bytes[i];
  packet.length = kRawPacketBytes;
  return packet;
}

TEST(ReferenceParser, TheLastPacketOfAFrameEndsInTheLastPixel) {
  LidarPoint::echo_num = 2;
  Parser parser;
  std::vector<LidarPoint> points;
  int frame_id = -5;
  const int index =
      ParsePacket(parser, Load(RawPacket(RawPlace{35, 3, 5, 7}, 77)), points, frame_id, 2);
  EXPECT_EQ(index, 6911);
  EXPECT_EQ(frame_id, 77);
  ASSERT_EQ(points.size(), 9U);
  EXPECT_EQ(points[8].row, 215);
  EXPECT_EQ(points[8].col, 287);
  EXPECT_EQ(points[0].shot_times, 160.0F);
  EXPECT_EQ(points[0].echoes[0].peak_addr, 0);
}

TEST(ReferenceParser, WordsShotsAndThresholdComeOutOfTheBlock) {
  LidarPoint::echo_num = 2;
  RawPacket raw(RawPlace{1, 0, 0, 0}, 0);
  raw.SetSample(0, 4, 0xFF1);  // high bits past 16 are cut: 0x1000
  raw.SetSample(0, 5, 0x002);
  raw.SetSample(0, 6, 0x401);  // high bits past 22 are cut: 0x001000
  raw.SetSample(0, 7, 0x003);
  raw.SetSample(0, 8, 0xFFF);
  raw.SetSample(1, 5, 3);
  raw.bytes[688] = 0x78;
  raw.bytes[689] = 0x56;
  raw.bytes[690] = 0x34;
  raw.bytes[691] = 0x12;
  Parser parser;
  parser.shot_times = {0.0F, 240.0F};
  parser.detect_threshold = {10, 20, 30, 40, 50, 60, 70};
  std::vector<LidarPoint> points;
  int frame_id = 0;
  EXPECT_EQ(ParsePacket(parser, Load(raw), points, frame_id, 2), 192);
  EXPECT_EQ(points[0].row, 6);
  EXPECT_EQ(points[0].pixel_word22, 4099.0F);
  EXPECT_EQ(points[0].pixel_word11, 2047.0F);
  EXPECT_EQ(points[0].shot_times, 240.0F);
  EXPECT_EQ(points[0].shot_ratio, 1.5F);
  // Noise 0xF002 | ... is 16 bits: level 6 of the table, times 1.5 is 9, nearest entry is the last.
  EXPECT_EQ(points[0].detect_threshold, 70.0F);
  // Noise 3 times 1.5 is 4.5, entry 4.
  EXPECT_EQ(points[1].detect_threshold, 50.0F);
  EXPECT_EQ(parser.udp_seq_base, 0x12345678U);
}

TEST(ReferenceParser, ForeignPacketsAreRefusedAndAWrongCountThrows) {
  LidarPoint::echo_num = 2;
  Parser parser;
  std::vector<LidarPoint> points;
  int frame_id = 4;
  RawPacket raw(RawPlace{}, 9);
  raw.bytes[3] = 10;
  EXPECT_EQ(ParsePacket(parser, Load(raw), points, frame_id, 2), -1);
  EXPECT_EQ(frame_id, 4);
  EXPECT_TRUE(points.empty());
  raw.bytes[3] = 11;
  raw.bytes[12] = 8;
  EXPECT_THROW(ParsePacket(parser, Load(raw), points, frame_id, 2), std::logic_error);
}

// Samples 50, 100, 50 around sample 8 on a baseline of 0. Three-bin sums 50, 150, 200, 150, 50 at
// D[6] to D[10].
std::vector<std::uint16_t> Pulse() {
  std::vector<std::uint16_t> samples(17, 0);
  samples[7] = 50;
  samples[8] = 100;
  samples[9] = 50;
  return samples;
}

TEST(ReferenceEcho, SymmetricPulseByHand) {
  LidarPoint::echo_num = 2;
  for (int slot = 0; slot < 2; ++slot) {
    Parser parser;
    LidarPoint point;
    point.detect_threshold = 100.0F;
    point.echoes[slot].peak_addr = 92;
    ComputeEcho(parser, Pulse().data(), point, slot);
    const LidarEcho& e = point.echoes[slot];
    EXPECT_TRUE(e.detect_pass);
    EXPECT_FLOAT_EQ(e.peak, 200.0F);
    EXPECT_FLOAT_EQ(e.peak_ratio, 2.0F);
    // Threshold 200 / 5 = 40: edges 5 + 40 / 50 and 10 + 10 / 50.
    EXPECT_FLOAT_EQ(e.cogw, 4.4F);
    EXPECT_EQ(e.cogw_flag, 0);
    // Whole bins 600, partial bins -0.6 at 40: 576; height half of (90000 - 960) / 576.
    EXPECT_NEAR(e.cogh, 77.291667, 1e-4);
    EXPECT_NEAR(e.dist_raw, 15.0, 1e-5);
    EXPECT_NEAR(e.waveform_rms_ratio, std::sqrt(6000.0) / 200.0, 1e-6);
  }
}

TEST(ReferenceEcho, HighWidthReplacesTheLowOne) {
  LidarPoint::echo_num = 2;
  Parser parser;
  parser.cogw_high_mode = 1;
  LidarPoint point;
  point.detect_threshold = 100.0F;
  ComputeEcho(parser, Pulse().data(), point, 0);
  // Threshold 400 / 3 = 133.33: edges 6 + 83.33 / 100 and 9 + 16.67 / 100.
  EXPECT_NEAR(point.echoes[0].cogw_high, 2.0F + 1.0F / 3.0F, 1e-5);
  EXPECT_EQ(point.echoes[0].cogw_flag, 2);
  // a = 7, z = 9: 500 whole, v = -(6.8333 - 7 + 9 - 9.1667) - 1 = -0.6667: 411.11; height
  // (85000 - 0.6667 * 17777.8) / 411.11 / 2.
  EXPECT_NEAR(point.echoes[0].cogh, 88.963964, 1e-3);
  EXPECT_NEAR(point.echoes[0].dist_raw, 1.2, 1e-5);
}

TEST(ReferenceEcho, ASecondPeakIsCutToTheSignificantLevel) {
  LidarPoint::echo_num = 2;
  Parser parser;
  parser.baseline_samples = 4;
  parser.baseline_rise_gate = 550.0F;
  parser.clip_side_peaks = true;
  std::vector<std::uint16_t> two = Pulse();
  two[2] = 30;
  LidarPoint a;
  LidarPoint b;
  for (LidarPoint* point : {&a, &b}) {
    point->detect_threshold = 100.0F;
    point->echoes[0].baseline = 3.0F;
  }
  ComputeEcho(parser, Pulse().data(), a, 0);
  ComputeEcho(parser, two.data(), b, 0);
  EXPECT_GT(a.echoes[0].dist_raw, 0.0F);
  EXPECT_NEAR(a.echoes[0].dist_raw, b.echoes[0].dist_raw, 1e-6);
  parser.clip_side_peaks = false;
  LidarPoint c;
  c.detect_threshold = 100.0F;
  c.echoes[0].baseline = 3.0F;
  ComputeEcho(parser, two.data(), c, 0);
  EXPECT_GT(c.echoes[0].waveform_rms_ratio, a.echoes[0].waveform_rms_ratio);
}

TEST(ReferenceEcho, ARisenBaselineIsTakenUp) {
  LidarPoint::echo_num = 2;
  Parser parser;
  parser.baseline_samples = 4;
  parser.baseline_rise_gate = 550.0F;
  parser.baseline_rise_limit = 10.0F;
  std::vector<std::uint16_t> samples(17, 10);
  samples[7] = 200;
  samples[8] = 500;
  samples[9] = 200;
  LidarPoint point;
  point.detect_threshold = 100.0F;
  point.echoes[0].baseline = 24.0F;
  point.echoes[0].noise = 5.0F;
  ComputeEcho(parser, samples.data(), point, 0);
  // Level 30, rise 6, added 7: 2048 * 7 / 160 / 3.
  EXPECT_FLOAT_EQ(point.echoes[0].baseline, 31.0F);
  EXPECT_NEAR(point.echoes[0].change_noise_noise_append, 29.866667, 1e-4);
  EXPECT_NEAR(point.echoes[0].noise, 34.866667, 1e-4);
  EXPECT_FALSE(point.echoes[0].highRefl);
  LidarPoint bright;
  bright.detect_threshold = 100.0F;
  bright.echoes[0].baseline = 23.0F;
  ComputeEcho(parser, samples.data(), bright, 0);
  EXPECT_TRUE(bright.echoes[0].highRefl);
}

TEST(ReferenceEcho, AWindowWithoutAPulseEndsEarly) {
  LidarPoint::echo_num = 2;
  Parser parser;
  const std::vector<std::uint16_t> zeros(17, 0);
  LidarPoint point;
  point.detect_threshold = 100.0F;
  point.echoes[0].baseline = 6.0F;
  ComputeEcho(parser, zeros.data(), point, 0);
  EXPECT_EQ(point.echoes[0].peak, 6.0F);
  EXPECT_EQ(point.echoes[0].peak_ratio, 0.0F);
  EXPECT_FALSE(point.echoes[0].detect_pass);
  EXPECT_EQ(point.echoes[0].dist_raw, 0.0F);
}

TEST(ReferenceEcho, WideAndHighPulsesAreDroppedAndWideOnesTakeTheParabola) {
  LidarPoint::echo_num = 2;
  Parser parser;
  parser.cogw_high_mode = 1;
  parser.width_curves.low.assign(641, 5.0F);
  parser.width_curves.gate.assign(641, 0.0F);
  parser.width_curves.high.assign(641, 1.0F);
  LidarPoint point;
  point.detect_threshold = 100.0F;
  ComputeEcho(parser, Pulse().data(), point, 0);
  // Low width 4.4 below 5; high width 2.33 above 1 + 1 and height 89 above 80.
  EXPECT_EQ(point.echoes[0].cogw_flag, 7);
  EXPECT_EQ(point.echoes[0].dist_raw, 0.0F);
  EXPECT_GT(point.echoes[0].cogh, 80.0F);

  parser.width_curves.high.assign(641, 2.0F);
  std::vector<std::uint16_t> skewed = Pulse();
  skewed[7] = 60;
  LidarPoint wide;
  wide.detect_threshold = 100.0F;
  ComputeEcho(parser, skewed.data(), wide, 0);
  // Sums 160, 210, 150 around the centre: q = -110, u = 10 / -220.
  ASSERT_GT(wide.echoes[0].cogw_high, 2.1F);
  ASSERT_LT(wide.echoes[0].cogw_high, 3.0F);
  EXPECT_NEAR(wide.echoes[0].dist_raw, (8.0 - 10.0 / 220.0) * 0.15, 1e-6);
}

}  // namespace
}  // namespace reference
