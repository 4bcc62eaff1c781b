// Streams that no sensor sends: every packet in its place, its content random. The node publishes
// what the reference gives, in every form of the vector kernels.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "stream_expectations.h"
#include "support/kernel_forms.h"
#include "support/random_records.h"

namespace kerul::lidar::testing {
namespace {

// A frame and a bit of random packets; one in five hundred is out of its place, and of these few
// frame ids jump.
std::vector<Datagram> RandomDatagrams(std::uint64_t seed) {
  RandomRecords random(seed);
  std::vector<Datagram> datagrams;
  for (int i = 0; i < 6912 + 500; ++i) {
    const int frame_id = 20 + i / 6912;
    UdpPacket packet = random.RawPacketAt(i % 6912, frame_id);
    if (random.Chance(0.002)) packet = random.RawPacket();
    if (random.Chance(0.9995)) packet.buffer[675] = static_cast<std::uint8_t>(frame_id);
    datagrams.emplace_back(packet.buffer, packet.buffer + packet.length);
  }
  return datagrams;
}

TwinCounts ExpectSameOutput(const DefaultConfig& config, const std::vector<Datagram>& datagrams) {
  TwinRun run(config, SimulatedCalibration());
  auto next = datagrams.cbegin();
  EXPECT_EQ(run.Play([&] { return next == datagrams.cend() ? nullptr : &*next++; }), "");
  EXPECT_GE(run.counts().packets, 1728U);
  return run.counts();
}

using RandomStream = FormsTest;
RUN_IN_EVERY_FORM(RandomStream);

TEST_P(RandomStream, GivesTheReferencesBytesForRandomPackets) {
  const std::vector<Datagram> datagrams = RandomDatagrams(91);
  for (const int mode : {0, 3, 11, 12}) {
    SCOPED_TRACE("output mode " + std::to_string(mode));
    DefaultConfig config = StreamConfig();
    config.output_mode = static_cast<std::uint16_t>(mode);
    config.echo_output_code = mode == 0 ? 1 : 12;
    // Neighbour validation leaves little of what fits nowhere.
    config.neighbor_check_enable = mode < 10;
    config.shot_noise_enable = mode < 10;
    const TwinCounts counts = ExpectSameOutput(config, datagrams);
    EXPECT_GT(counts.distances, config.neighbor_check_enable ? 0U : 5000U);
  }
}

TEST_P(RandomStream, GivesTheReferencesBytesForAFaultyStream) {
  SimulatedStream::Plan plan = OneMixedFrame();
  plan.datagrams = 20000;
  plan.faults = {.loss = 0.001, .duplicate = 0.001, .frame_jump = 0.5, .short_datagram = 0.001};
  plan.more_faults = {.late = 0.001, .wild = 0.01};
  EXPECT_GE(ExpectSameOutput(StreamConfig(), plan).frames, 2U);
}

// Edge values out of the tables reach every later step as NaN and infinity.
TEST(RandomStream, TablesWithEdgeValuesGiveTheReferencesBytes) {
  for (std::uint64_t seed = 92; seed < 98; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomRecords random(seed);
    DefaultConfig config = StreamConfig();
    config.output_mode = static_cast<std::uint16_t>(random.Below(14));
    config.echo_output_code = random.Chance(0.5) ? 12 : 21;
    config.frame_output_enable = random.Chance(0.3);
    config.ground_plane_enable = random.Chance(0.5);
    config.ground_smooth_enable = random.Chance(0.5);
    config.ground_vert_seed_enable = random.Chance(0.5);
    DefaultTables& tables = config.tables;
    tables.shot_times = random.Table(36, 16.0F, 432.0F, 0.1);
    tables.env_cogh = random.Table(1024, 0.0F, 2.0F, 0.02);
    tables.env_cogh_high = random.Table(1024, 0.0F, 2.0F, 0.02);
    tables.env_cogt = random.Table(4, -1.0F, 1.0F, 0.05);
    tables.cogh_efficiant = random.Table(600, 0.0F, 4.0F, 0.02);
    tables.retro_filter = random.Table(31, 0.0F, 5.0F, 0.05);
    tables.high_threshold_cogh_out =
        random.Table(tables.high_threshold_cogh_in.size(), 0.0F, 500.0F, 0.05);
    ExpectSameOutput(config, RandomDatagrams(seed));
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
