// Raw packets to points: the parser against the reference on random packets.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "MIPI_reader/parser/lidar_parser.h"
#include "config/default_config.h"
#include "reference/parser.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"
#include "support/random_records.h"

namespace kerul::lidar::testing {
namespace {

// The same settings on both sides.
struct ParserPair {
  LidarParserQDV11 node;
  reference::Parser reference;

  void UseWidthCurves(const std::vector<float>& low, const std::vector<float>& gate,
                      const std::vector<float>& high) {
    node.cogw_filter = std::make_shared<CogwFilter>(low, gate, high);
    reference.width_curves = {low, gate, high};
  }
};

void UseTables(RandomRecords& random, ParserPair& pair) {
  const DefaultTables& tables = default_config::kConfig.tables;
  if (random.Chance(0.8)) pair.node.shot_times = tables.shot_times;
  if (random.Chance(0.2)) pair.node.shot_times = random.Table(256, 0.0F, 500.0F, 0.05);
  if (random.Chance(0.8)) pair.node.detect_threshold_bins = tables.detect_threshold;
  const int curves = random.Below(4);
  if (curves == 0) {
    pair.UseWidthCurves(random.Table(641, 1.0F, 8.0F), random.Table(641, 1.0F, 8.0F),
                        random.Table(641, 1.0F, 8.0F));
  } else if (curves < 3) {
    pair.UseWidthCurves(tables.cogw_a, tables.cogw_b, tables.cogw_c);
  }
}

void UseSettings(RandomRecords& random, ParserPair& pair) {
  LidarParserQDV11& node = pair.node;
  node.cogw_high_mode = static_cast<std::uint16_t>(random.Below(3));
  node.clip_side_peaks = random.Chance(0.5);
  node.keep_bins = random.Chance(0.5);
  node.baseline_samples = random.Chance(0.5) ? 4 : random.Between(1, 20);
  node.baseline_rise_gate = random.Chance(0.5) ? 550.0F : random.Uniform(0.0F, 300.0F);
  node.baseline_rise_limit = random.Chance(0.5) ? 10.0F : random.Uniform(0.0F, 500.0F);
  node.udp_seq_base = random.Chance(0.5) ? 0 : static_cast<std::uint32_t>(random.Bits());
}

void MakePair(RandomRecords& random, ParserPair& pair) {
  UseTables(random, pair);
  UseSettings(random, pair);
  const LidarParserQDV11& node = pair.node;
  pair.reference.keep_bins = node.keep_bins;
  pair.reference.clip_side_peaks = node.clip_side_peaks;
  pair.reference.cogw_high_mode = node.cogw_high_mode;
  pair.reference.baseline_samples = node.baseline_samples;
  pair.reference.baseline_rise_gate = node.baseline_rise_gate;
  pair.reference.baseline_rise_limit = node.baseline_rise_limit;
  pair.reference.shot_times = node.shot_times;
  pair.reference.detect_threshold = node.detect_threshold_bins;
  pair.reference.udp_seq_base = node.udp_seq_base;
}

std::string PointsDifference(const std::vector<LidarPoint>& got,
                             const std::vector<LidarPoint>& expected) {
  if (got.size() != expected.size()) return "another number of points";
  for (std::size_t i = 0; i < got.size(); ++i) {
    const std::string difference = PointDifference(got[i], expected[i]);
    if (!difference.empty()) return "point " + std::to_string(i) + " " + difference;
  }
  return {};
}

TEST(PacketParsing, RandomPacketsGiveTheReferencesPoints) {
  RandomRecords random(11);
  FormsInTurn forms;
  int echoes = 0;
  for (int round = 0; round < 800; ++round) {
    random.StartRound();
    forms.Next();
    ParserPair pair;
    MakePair(random, pair);
    LidarPoint::echo_num = random.Between(1, 2);
    const int echo_count = random.Chance(0.8) ? LidarPoint::echo_num : random.Below(3);
    // What the points held before shows in the fields that no reset clears.
    std::vector<LidarPoint> points(9);
    for (LidarPoint& point : points) point = random.Point(0.1);
    std::vector<LidarPoint> expected = points;
    for (int i = 0; i < 25; ++i) {
      UdpPacket packet = random.RawPacket();
      if (random.Chance(0.02)) packet.buffer[3] = 10;
      int frame_id = -7;
      int expected_id = -7;
      const int index = pair.node.ParsePacket(packet, points, frame_id, echo_count);
      ASSERT_EQ(index,
                reference::ParsePacket(pair.reference, packet, expected, expected_id, echo_count));
      ASSERT_EQ(frame_id, expected_id);
      ASSERT_EQ(pair.node.udp_seq_base, pair.reference.udp_seq_base);
      ASSERT_EQ(PointsDifference(points, expected), "") << "round " << round << ", packet " << i;
      for (const LidarPoint& point : points) echoes += point.echoes[0].dist_raw > 0.0F ? 1 : 0;
    }
  }
  EXPECT_GT(echoes, 40000);
}

TEST(PacketParsing, EveryGroupAndSlotGivesTheReferencesPlace) {
  RandomRecords random(12);
  FormsInTurn forms;
  ParserPair pair;
  MakePair(random, pair);
  std::vector<LidarPoint> points;
  std::vector<LidarPoint> expected;
  UdpPacket packet = random.RawPacket();
  int compared = 0;
  for (int group = 0; group < 256; ++group) {
    forms.Next();
    for (int slot = 0; slot < 256; slot += 1 + random.Below(9)) {
      packet.buffer[673] = static_cast<std::uint8_t>(group);
      packet.buffer[671] = static_cast<std::uint8_t>(slot);
      packet.buffer[674] = random.Byte();
      int frame_id = 0;
      int expected_id = 0;
      ASSERT_EQ(pair.node.ParsePacket(packet, points, frame_id, 0),
                reference::ParsePacket(pair.reference, packet, expected, expected_id, 0));
      ASSERT_EQ(PointsDifference(points, expected), "");
      ++compared;
    }
  }
  EXPECT_GT(compared, 10000);
}

// Alone, the computation also meets what no packet brings: samples of 16 bits, odd baselines.
TEST(EchoComputation, RandomWindowsGiveTheReferencesEcho) {
  RandomRecords random(13);
  int sure = 0;
  for (int round = 0; round < 200; ++round) {
    random.StartRound();
    ParserPair pair;
    MakePair(random, pair);
    for (int i = 0; i < 1000; ++i) {
      const int slot = random.Below(2);
      std::uint16_t samples[kWindowSamples];
      random.Window(samples);
      if (random.Chance(0.05)) {
        for (std::uint16_t& sample : samples) sample = static_cast<std::uint16_t>(random.Bits());
      }
      LidarPoint point = random.Point(0.02);
      if (random.Chance(0.7)) point.detect_threshold = random.Uniform(10.0F, 200.0F);
      if (random.Chance(0.7)) point.echoes[slot].baseline = random.Uniform(0.0F, 80.0F);
      LidarPoint expected = point;
      pair.node.ComputeEchoData(samples, point, slot);
      reference::ComputeEcho(pair.reference, samples, expected, slot);
      ASSERT_EQ(PointDifference(point, expected), "") << "round " << round << ", window " << i;
      if (point.echoes[slot].detect_pass) ++sure;
    }
  }
  EXPECT_GT(sure, 50000);
}

}  // namespace
}  // namespace kerul::lidar::testing
