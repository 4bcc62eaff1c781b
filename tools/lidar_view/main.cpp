// Shows the published point stream and writes its latest complete frame on request.

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "lidar_view/viewer_app.h"
#include "standard_streams.h"

namespace {

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

}  // namespace

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  kerul::lidar::view::ViewerOptions options;
  int exit_status = 0;
  if (!kerul::lidar::view::ParseOptions(argc, argv, options, exit_status)) return exit_status;
  std::signal(SIGINT, [](int) { stop_requested = true; });
  std::signal(SIGTERM, [](int) { stop_requested = true; });
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  return kerul::lidar::view::RunViewer(options, stop_requested, terminal, std::cout, std::cerr);
}
