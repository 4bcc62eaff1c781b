// Holds what the node publishes against the simulator's ground truth.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include "sensor_simulator/scenes.h"
#include "standard_streams.h"
#include "support/number_options.h"
#include "truth_report/accuracy.h"
#include "truth_report/filter_pictures.h"
#include "truth_report/filter_report.h"

namespace {

namespace report = kerul::lidar::report;

struct Options {
  std::string scene = "street";
  std::uint32_t frames = 20;
  bool bodies = false;
  std::string pictures;
};

void PrintAccuracy(const Options& options) {
  const report::AccuracyRun run = report::MeasureAccuracy(options.scene, options.frames);
  std::printf("All passes of the default configuration:\n\n%s\n",
              report::AccuracyTable(run.processed).c_str());
  std::printf("Calibrated, without any pass:\n\n%s\n",
              report::AccuracyTable(run.calibrated).c_str());
  if (options.bodies) {
    std::printf("By body, calibrated, without any pass:\n\n%s\n",
                report::BodyTable(run.calibrated).c_str());
  }
  const report::ErrorSummary retro = run.calibrated.RetroRange();
  if (retro.count == 0) return;
  std::printf(
      "Retro-reflectors, range only, without any pass: %zu returns, median %.1f mm, 95 %% "
      "%.1f mm, signed median %+.1f mm\n",
      retro.count, retro.median_abs * 1e3, retro.p95_abs * 1e3, retro.median_signed * 1e3);
}

}  // namespace

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  CLI::App app{"The node's output held against the simulated sensor's ground truth"};
  app.require_subcommand(1);
  Options options;
  CLI::App* accuracy =
      app.add_subcommand("accuracy", "Range and reflectivity errors by range, as Markdown tables");
  accuracy->add_option("--scene", options.scene, "What the sensor looks at")
      ->check(CLI::IsMember(kerul::lidar::simulator::SceneNames()))
      ->capture_default_str();
  accuracy->add_option("--frames", options.frames, "Frames to measure, from number 0 on")
      ->check(kerul::lidar::WholeNumberOf(options.frames, 1))
      ->capture_default_str();
  accuracy->add_flag("--bodies", options.bodies, "A table by body of the scene as well");
  CLI::App* filters = app.add_subcommand(
      "filters", "What each row pass does to true and false returns, as Markdown tables");
  std::uint32_t filter_frames = 10;
  filters->add_option("--frames", filter_frames, "Frames of each scene, from number 0 on")
      ->check(kerul::lidar::WholeNumberOf(filter_frames, 1))
      ->capture_default_str();
  filters->add_option("--pictures", options.pictures,
                      "Write a picture of each pass into this directory instead");
  CLI11_PARSE(app, argc, argv);
  try {
    if (accuracy->parsed()) {
      PrintAccuracy(options);
    } else if (options.pictures.empty()) {
      std::printf("%s", report::FilterReport(filter_frames).c_str());
    } else {
      report::WriteFilterPictures(options.pictures);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "truth_report: %s\n", error.what());
    return 1;
  }
  return 0;
}
