// The node's output is what the reference gives for the same stream, byte for byte.
#include <gtest/gtest.h>

#include <string>

#include "simulated_stream.h"
#include "twin_run.h"

namespace kerul::lidar::testing {
namespace {

TwinCounts ExpectSameOutput(const DefaultConfig& config, const SimulatedStream::Plan& plan) {
  SimulatedStream stream(plan);
  TwinRun run(config, SimulatedCalibration());
  EXPECT_EQ(run.Play([&] { return stream.Next(); }), "");
  return run.counts();
}

TEST(WholeStream, DefaultSettingsGiveTheReferencesBytesOnEveryScene) {
  const TwinCounts counts = ExpectSameOutput(
      StreamConfig(), {.scenes = {"street", "retro", "noise", "street", "empty"}, .frames = 6});
  EXPECT_EQ(counts.datagrams, 6U * 6912U);
  EXPECT_EQ(counts.packets, 6U * 1728U);
  EXPECT_EQ(counts.frames, 6U);
  EXPECT_GT(counts.distances, 6U * 20000U);
}

}  // namespace
}  // namespace kerul::lidar::testing
