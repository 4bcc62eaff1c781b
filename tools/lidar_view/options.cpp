#include <CLI/CLI.hpp>

#include "lidar_view/viewer_app.h"
#include "support/input_options.h"
#include "support/number_options.h"

namespace kerul::lidar::view {
namespace {

void AddRunOptions(CLI::App& app, ViewerOptions& options) {
  AddInputOptions(app, options.shm_name, options.udp_port, options.multicast_group);
  app.add_option("--seconds", options.limits.seconds, "Stop after this time")
      ->check(PositiveNumber());
  app.add_option("--frames", options.limits.complete_frames, "Stop after this many complete frames")
      ->check(WholeNumberOf(options.limits.complete_frames, 1));
}

void AddOutputOptions(CLI::App& app, ViewerOptions& options, std::string& color, bool& pcd_floats) {
  app.add_option("--png", options.files.png, "Write the latest complete frame as a picture");
  app.add_option("--pcd", options.files.pcd, "Write its points as binary PCD");
  app.add_flag("--pcd-floats", pcd_floats, "All fields of the PCD as floats");
  app.add_option("--ply", options.files.ply, "Write its points as binary PLY");
  app.add_option("--las", options.files.las, "Write its points as LAS 1.2");
  app.add_option("--summary", options.summary, "Write what was counted as key=value lines");
  app.add_option(
      "--calib", options.calib_dir,
      "Folder with Lidar-*_angle_calib.dat or *_head.bin, or its parent, for the pixels' "
      "directions (default: the simulated sensor's)");
  app.add_flag("--mount", options.mount, "Apply the configured mounting to the points");
  app.add_option("--max-range", options.picture.max_range_m,
                 "End of the picture's range scale in metres (default 40)")
      ->check(PositiveNumber());
  app.add_option("--color", color,
                 "What the picture shows beside the ranges: reflectivity (default) or flags "
                 "(ground, and in output mode 12 bloom, filled, after-pulse, high reflectivity)")
      ->check(CLI::IsMember({"reflectivity", "flags"}));
}

}  // namespace

bool ParseOptions(int argc, const char* const* argv, ViewerOptions& options, int& exit_status) {
  CLI::App app("Shows the point stream of the LiDAR node: frames, packets, loss, latency.");
  std::string color;
  bool pcd_floats = false;
  AddRunOptions(app, options);
  AddOutputOptions(app, options, color, pcd_floats);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_status = app.exit(error) == 0 ? 0 : 1;
    return false;
  }
  if (pcd_floats) options.files.pcd_numbers = PcdNumbers::kFloats;
  if (color == "flags") options.picture.colouring = Colouring::kFlags;
  return true;
}

}  // namespace kerul::lidar::view
