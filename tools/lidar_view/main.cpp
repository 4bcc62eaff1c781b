// Shows the published point stream and writes its latest complete frame on request.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "config/default_config.h"
#include "lidar_view/frame_output.h"
#include "lidar_view/stream_viewer.h"

namespace {

namespace view = kerul::lidar::view;

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

struct Options {
  std::string shm_name;
  int udp_port = 0;
  std::string multicast_group;
  view::ViewLimits limits;
  view::FrameFiles files;
  std::string summary;
  std::string calib_dir;
  bool mount = false;
  view::PictureOptions picture;
  std::string color = "reflectivity";
};

void AddOptions(CLI::App& app, Options& options) {
  auto* shm = app.add_option("--shm", options.shm_name,
                             "Read the shared-memory ring of this name (default "
                             "kerul_lidar_udp_shm)");
  auto* udp = app.add_option("--udp", options.udp_port, "Read UDP packets from this port instead")
                  ->check(CLI::Range(1, 65535))
                  ->excludes(shm);
  app.add_option("--group", options.multicast_group, "Join this multicast group (with --udp)")
      ->needs(udp);
  app.add_option("--seconds", options.limits.seconds, "Stop after this time")
      ->check(CLI::PositiveNumber);
  app.add_option("--frames", options.limits.complete_frames, "Stop after this many complete frames")
      ->check(CLI::PositiveNumber);
  app.add_option("--png", options.files.png, "Write the latest complete frame as a picture");
  app.add_option("--pcd", options.files.pcd, "Write its points as binary PCD");
  app.add_option("--ply", options.files.ply, "Write its points as binary PLY");
  app.add_option("--summary", options.summary, "Write what was counted as key=value lines");
  app.add_option("--calib", options.calib_dir,
                 "Folder with Lidar-*_angle_calib.dat or *_head.bin for the pixels' directions "
                 "(default: the simulated sensor's)");
  app.add_flag("--mount", options.mount, "Apply the configured mounting to the points");
  app.add_option("--max-range", options.picture.max_range_m,
                 "End of the picture's range scale in metres (default 40)")
      ->check(CLI::PositiveNumber);
  app.add_option("--color", options.color,
                 "What the picture shows beside the ranges: reflectivity (default) or flags "
                 "(ground, and in output mode 12 bloom, filled, after-pulse, high reflectivity)")
      ->check(CLI::IsMember({"reflectivity", "flags"}));
}

// On a terminal the line is written over the last one.
void ShowStatus(const std::string& line) {
  if (isatty(STDOUT_FILENO) != 0) {
    std::cout << "\r\033[K" << line << std::flush;
  } else {
    std::cout << line << std::endl;
  }
}

bool WriteSummary(const std::string& path, const view::StreamViewer& viewer) {
  std::ofstream file(path, std::ios::trunc);
  file << view::FormatSummary(viewer.Counts(), viewer.Seconds());
  file.close();
  return file.good();
}

// Why there is no complete frame, for the one who waited for it.
std::string NoFrameMessage(const view::PacketInput& input, const view::ViewCounts& counts) {
  std::string text = "no complete frame came from " + input.Describe() + ": ";
  if (counts.packets == 0 && counts.invalid == 0) return text + "no packets";
  return text + std::to_string(counts.packets) + " packets, " + std::to_string(counts.incomplete) +
         " incomplete frames, " + std::to_string(counts.lost) + " packets lost, " +
         std::to_string(counts.invalid) + " not point packets";
}

int Report(const Options& options, const view::PacketInput& input, const view::StreamViewer& viewer,
           const view::Directions& directions) {
  bool sound = true;
  const auto complain = [&](const std::string& text) {
    std::cerr << "lidar_view: " << text << std::endl;
    sound = false;
  };
  if (!options.summary.empty() && !WriteSummary(options.summary, viewer)) {
    complain("cannot write " + options.summary);
  }
  const kerul::lidar::CollectedFrame* frame = viewer.LatestComplete();
  if (frame == nullptr) {
    complain(NoFrameMessage(input, viewer.Counts()));
    return 1;
  }
  const kerul::lidar::TransformParam* mount =
      options.mount ? &kerul::lidar::default_config::kConfig.transform : nullptr;
  std::string error;
  if (!view::WriteFrameFiles(options.files, *frame, directions, mount, options.picture, error)) {
    complain(error.substr(0, error.size() - 1));
  }
  return sound ? 0 : 1;
}

int Run(const Options& options) {
  std::string error;
  view::Directions directions;
  if (!view::LoadDirections(options.calib_dir, directions, error)) {
    std::cerr << "lidar_view: " << error << std::endl;
    return 1;
  }
  const std::unique_ptr<view::PacketInput> input =
      options.udp_port == 0 ? view::MakeRingInput(options.shm_name)
                            : view::MakeUdpInput(static_cast<std::uint16_t>(options.udp_port),
                                                 options.multicast_group, error);
  if (input == nullptr) {
    std::cerr << "lidar_view: cannot open UDP port " << options.udp_port << ": " << error
              << std::endl;
    return 1;
  }
  view::StreamViewer viewer(*input);
  viewer.Run(options.limits, stop_requested, ShowStatus);
  if (isatty(STDOUT_FILENO) != 0) std::cout << std::endl;
  return Report(options, *input, viewer, directions);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Shows the point stream of the LiDAR node: frames, packets, loss, latency.");
  Options options;
  AddOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 1;
  }
  if (options.color == "flags") options.picture.colouring = view::Colouring::kFlags;
  std::signal(SIGINT, [](int) { stop_requested = true; });
  std::signal(SIGTERM, [](int) { stop_requested = true; });
  return Run(options);
}
