// Publishes the node's frames as ROS 2 topics.

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <iostream>

#include "lidar_dds/options.h"
#include "standard_streams.h"

namespace {

using namespace kerul::lidar;

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal handler");

int Run(const dds::Options& options) {
  std::string error;
  const auto stream = ros::OpenStream(options.stream, RingStart::kNewest, error);
  const auto topics = stream == nullptr ? nullptr : dds::OpenTopics(options.topics, error);
  if (topics == nullptr) {
    std::cerr << "lidar_dds: " << error << std::endl;
    return 1;
  }
  stream->SurviveShortening();
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  const dds::BridgeResult result =
      dds::RunBridge(options.bridge, *stream, *topics, stop_requested, terminal, std::cout);
  std::cout << "frames " << result.stream.complete + result.stream.incomplete << "  published "
            << result.published << "  left out " << result.left_out << std::endl;
  if (result.stream.complete > 0) return 0;
  std::cerr << "lidar_dds: no complete frame came from " << stream->Describe() << std::endl;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  OpenMissingStandardStreams();
  dds::Options options;
  int exit_status = 0;
  if (!dds::ParseOptions(argc, argv, options, exit_status)) return exit_status;
  std::signal(SIGINT, [](int) { stop_requested = true; });
  std::signal(SIGTERM, [](int) { stop_requested = true; });
  return Run(options);
}
