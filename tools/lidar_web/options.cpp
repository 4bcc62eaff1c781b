#include <CLI/CLI.hpp>

#include "lidar_web/web_app.h"
#include "support/number_options.h"

namespace kerul::lidar::web {
namespace {

void AddSourceOptions(CLI::App& app, WebOptions& options) {
  auto* shm = app.add_option("--shm", options.source.shm_name,
                             "Read the shared-memory ring of this name (default "
                             "kerul_lidar_udp_shm)");
  auto* udp =
      app.add_option("--udp", options.source.udp_port, "Read UDP packets from this port instead")
          ->check(WholeNumber(1, 65535))
          ->excludes(shm);
  app.add_option("--group", options.source.multicast_group,
                 "Join this multicast group (with --udp)")
      ->needs(udp);
  app.add_option(
      "--calib", options.calib_dir,
      "Folder with Lidar-*_angle_calib.dat or *_head.bin, or its parent, for the pixels' "
      "directions (default: the simulated sensor's)");
  app.add_flag("--mount", options.mount, "Apply the configured mounting to the points");
}

void AddServerOptions(CLI::App& app, WebOptions& options) {
  app.add_option("--bind", options.bind, "Address to listen on; 0.0.0.0 is all")
      ->capture_default_str();
  app.add_option("--port", options.port, "TCP port; 0 takes a free one")
      ->check(WholeNumber(0, 65535))
      ->capture_default_str();
  app.add_option("--allow-host", options.allowed_hosts,
                 "Answer requests for this host name too (addresses, localhost and this machine's "
                 "name are answered)")
      ->type_size(1)
      ->allow_extra_args(false);
  app.add_option("--page", options.page, "Folder of the built page (default: the installed one)");
}

void AddNodeOptions(CLI::App& app, WebOptions& options) {
  app.add_option("--node-log", options.node_log,
                 "File that the node's output goes into, or - for standard input: tells what was "
                 "lost before the host");
  app.add_option("--node-port", options.node_port,
                 "UDP port of the node, for what the kernel dropped")
      ->check(WholeNumber(1, 65535))
      ->capture_default_str();
}

void AddStoryOptions(CLI::App& app, WebOptions& options) {
  auto* story = app.add_option("--story", options.story_captures,
                               "Tell the stories of pinned pixels from the captures of the raw "
                               "packets that are being kept in this folder")
                    ->check(CLI::ExistingPath);
  app.add_option("--story-calib", options.story_calib,
                 "Calibration that the node runs with, if it is not that of --calib")
      ->needs(story);
}

}  // namespace

bool ParseOptions(int argc, const char* const* argv, WebOptions& options, int& exit_status) {
  CLI::App app("Shows the point stream of the LiDAR node in a browser, and its figures.");
  AddSourceOptions(app, options);
  AddServerOptions(app, options);
  AddNodeOptions(app, options);
  AddStoryOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_status = app.exit(error) == 0 ? 0 : 1;
    return false;
  }
  return true;
}

}  // namespace kerul::lidar::web
