// Frame of every kernel's benchmark. Names are kernel/variant/input; variant "node" is what the
// program runs, "reference" the plain form at -O2, "floor" the bare copy.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/bench_input.h"
#include "support/bench_node.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {

// Shares of a frame's work that one iteration does.
inline constexpr double kWholeFrame = 1.0;
inline constexpr double kOneRow = 1.0 / kMiniflashRows;
inline constexpr int kBatchPackets = 16;  // their points are still in the first cache
inline constexpr int kBatchesPerFrame = kPacketsPerFrame / kBatchPackets;
inline constexpr double kOneBatch = 1.0 / kBatchesPerFrame;
inline constexpr int kFramesPerScene = 3;  // inputs vary between iterations

// The scene's frames, made at the first call.
const std::vector<FramePackets>& FramesOf(const std::string& scene);

// prepare(i) sets up iteration i, unmeasured; work(i) is measured, in thread time less the cost of
// reading the clock. The counter "frames" gives the reporter the share of a frame that an iteration
// does.
template <typename Prepare, typename Work>
void AddKernel(const std::string& name, double frames, int iterations, Prepare prepare, Work work) {
  const auto body = [=](benchmark::State& state) mutable {
    const double clock_cost_ms = ThreadClockCostMs();
    int i = 0;
    for (auto _ : state) {
      prepare(i);
      const double elapsed_ms = TimeMs([&] { work(i); }) - clock_cost_ms;
      state.SetIterationTime(std::max(elapsed_ms, 0.0) * 1e-3);
      ++i;
    }
    state.counters["frames"] = frames;
  };
  benchmark::RegisterBenchmark(name.c_str(), body)->UseManualTime()->Iterations(iterations);
}

// One for each file of benchmarks. The node outlives the run.
void AddParserKernels(BenchNode& node);
void AddCalibrationKernels(BenchNode& node);
void AddFrameKernels(BenchNode& node);
void AddRowPassKernels(BenchNode& node);
void AddOutputKernels(BenchNode& node);
void AddFloors();

}  // namespace kerul::lidar::bench
