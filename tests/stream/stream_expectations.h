// What most whole-stream tests do.
#pragma once

#include <gtest/gtest.h>

#include "simulated_stream.h"
#include "twin_run.h"

namespace kerul::lidar::testing {

inline TwinCounts ExpectSameOutput(const DefaultConfig& config, const SimulatedStream::Plan& plan) {
  SimulatedStream stream(plan);
  TwinRun run(config, SimulatedCalibration());
  EXPECT_EQ(run.Play([&] { return stream.Next(); }), "");
  EXPECT_GT(run.counts().datagrams, 0U);
  return run.counts();
}

// A frame and a bit, with the rows of street, retro-reflectors and noise in turn.
inline SimulatedStream::Plan OneMixedFrame() {
  return {.scenes = {"street", "retro", "noise"}, .mix_rows = true, .datagrams = 6912 + 500};
}

}  // namespace kerul::lidar::testing
