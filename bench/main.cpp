// Every kernel on its own. Prints Markdown: ns per packet and us per frame, least, median and most
// of the repetitions.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "kernel_bench.h"
#include "support/measuring.h"

namespace {

using namespace kerul::lidar::bench;

// Gathers the repetitions of each benchmark and prints one line for it.
class MarkdownReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override {
    std::printf("%s\n| kernel/variant/input | ns per packet | us per frame: min | median | max |\n",
                DescribeMachine().c_str());
    std::printf("|---|---|---|---|---|\n");
    return true;
  }
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<double> frame_us;
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const double iteration_ns = run.GetAdjustedRealTime();
      frame_us.push_back(iteration_ns / run.counters.at("frames").value / 1e3);
    }
    if (frame_us.empty()) return;
    const Spread spread = SpreadOf(frame_us);
    std::printf("| %s | %.1f | %.1f | %.1f | %.1f |\n", runs.front().run_name.function_name.c_str(),
                1e3 * spread.median / kPacketsPerFrame, spread.min, spread.median, spread.max);
    std::fflush(stdout);
  }
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments;
  bool quick = false;
  for (int i = 0; i < argc; ++i) {
    if (std::string(argv[i]) == "--quick") {
      quick = true;
    } else {
      arguments.emplace_back(argv[i]);
    }
  }
  arguments.insert(arguments.begin() + 1,
                   "--benchmark_repetitions=" + std::string(quick ? "3" : "9"));
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  int count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;

  BenchNode node(MakeCalibration());
  AddParserKernels(node);
  AddCalibrationKernels(node);
  AddFrameKernels(node);
  AddRowPassKernels(node);
  AddOutputKernels(node);
  AddFloors();
  MarkdownReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
