// The node's output is what the reference gives for the same stream, byte for byte: the default
// settings, every kind of packet it can publish, and faults.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "stream_expectations.h"

namespace kerul::lidar::testing {
namespace {

TEST(WholeStream, DefaultSettingsGiveTheReferencesBytesOnEveryScene) {
  const TwinCounts counts = ExpectSameOutput(
      StreamConfig(),
      {.scenes = {"street", "retro", "noise", "street", "empty"}, .datagrams = 6 * 6912});
  EXPECT_EQ(counts.datagrams, 6U * 6912U);
  EXPECT_EQ(counts.packets, 6U * 1728U);
  EXPECT_EQ(counts.frames, 6U);
  EXPECT_GT(counts.distances, 6U * 20000U);
}

// --- Every output mode with every choice of echoes ---

// Rows 12 to 23, then a packet of the next frame that releases all 36 rows.
std::vector<Datagram> MiddleThirdOfAFrame() {
  SimulatedStream stream(OneMixedFrame());
  std::vector<Datagram> datagrams;
  int index = 0;
  while (const Datagram* datagram = stream.Next()) {
    if ((index >= 12 * 192 && index < 24 * 192) || index == 6912) datagrams.push_back(*datagram);
    ++index;
  }
  return datagrams;
}

class EveryOutputMode : public ::testing::TestWithParam<int> {};

TEST_P(EveryOutputMode, GivesTheReferencesBytes) {
  DefaultConfig config = StreamConfig();
  config.echo_output_code = static_cast<std::uint16_t>(GetParam());
  const bool two_packets = GetParam() > 9;
  const std::vector<Datagram> datagrams = MiddleThirdOfAFrame();
  for (std::uint16_t mode = 0; mode <= 13; ++mode) {
    SCOPED_TRACE("output mode " + std::to_string(mode));
    config.output_mode = mode;
    TwinRun run(config, SimulatedCalibration());
    auto next = datagrams.cbegin();
    EXPECT_EQ(run.Play([&] { return next == datagrams.cend() ? nullptr : &*next++; }), "");
    EXPECT_EQ(run.counts().packets, two_packets ? 3456U : 1728U);
    EXPECT_GT(run.counts().distances, 500U);
  }
}

INSTANTIATE_TEST_SUITE_P(WholeStream, EveryOutputMode,
                         ::testing::Values(0, 1, 2, 3, 4, 12, 21, 34, 43),
                         [](const auto& code) { return "EchoCode" + std::to_string(code.param); });

// --- Frame ids ---

// Later ids, stragglers down to 200 behind, and falls from 201 on, which are wraps.
TEST(WholeStream, FrameIdsThatJumpAndFallGiveTheReferencesBytes) {
  constexpr int kIds[] = {7,   207, 7,   6, 206, 200, 250, 49, 50,
                          255, 54,  254, 0, 1,   255, 55,  20, 230};
  constexpr std::size_t kPacketsOfEach = 400;
  SimulatedStream stream(OneMixedFrame());
  std::vector<Datagram> frame;
  while (const Datagram* datagram = stream.Next()) frame.push_back(*datagram);
  std::vector<Datagram> datagrams;
  for (std::size_t i = 0; i < std::size(kIds); ++i) {
    for (std::size_t packet = 0; packet < kPacketsOfEach; ++packet) {
      datagrams.push_back(frame[(i % 15) * kPacketsOfEach + packet]);
      datagrams.back()[675] = static_cast<std::uint8_t>(kIds[i]);
    }
  }
  TwinRun run(StreamConfig(), SimulatedCalibration());
  auto next = datagrams.cbegin();
  EXPECT_EQ(run.Play([&] { return next == datagrams.cend() ? nullptr : &*next++; }), "");
  EXPECT_GE(run.counts().stragglers, 3U * kPacketsOfEach);
  EXPECT_GE(run.counts().frames, 8U);
}

// --- Faults ---

SimulatedStream::Plan FaultyPlan(std::uint64_t datagrams) {
  SimulatedStream::Plan plan = OneMixedFrame();
  plan.datagrams = datagrams;
  plan.faults = {.loss = 0.0005,
                 .duplicate = 0.002,
                 .reorder = 0.002,
                 .frame_jump = 0.3,
                 .foreign = 0.001,
                 .other_version = 0.001,
                 .short_datagram = 0.001};
  plan.more_faults = {.late = 0.001, .wild = 0.001};
  return plan;
}

// Each kind of trouble has left its trace.
void ExpectTrouble(const TwinCounts& counts) {
  EXPECT_GT(counts.rows_again, 0U);
  EXPECT_GT(counts.stragglers, 0U);
  EXPECT_GT(counts.frames, counts.datagrams / 6912U);
}

TEST(WholeStream, FaultsOfAllKindsGiveTheReferencesBytes) {
  const TwinCounts counts = ExpectSameOutput(StreamConfig(), FaultyPlan(150000));
  ExpectTrouble(counts);
}

TEST(WholeStream, AMillionPacketsWithFaultsOfAllKindsGiveTheReferencesBytes) {
  DefaultConfig config = StreamConfig();
  config.echo_output_code = 12;
  config.output_mode = 12;
  SimulatedStream::Plan plan = FaultyPlan(1000000);
  plan.seed = 2;
  const TwinCounts counts = ExpectSameOutput(config, plan);
  ExpectTrouble(counts);
}

}  // namespace
}  // namespace kerul::lidar::testing
