#include <atomic>
#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>

#include "lidar_web/web_app.h"
#include "standard_streams.h"

namespace {

std::atomic<bool> stop{false};

void Stop(int /*signal*/) { stop = true; }

}  // namespace

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  kerul::lidar::web::WebOptions options;
  int exit_status = 0;
  if (!kerul::lidar::web::ParseOptions(argc, argv, options, exit_status)) return exit_status;
  std::signal(SIGINT, Stop);
  std::signal(SIGTERM, Stop);
  try {
    std::error_code ignored;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
    return kerul::lidar::web::RunWebServer(options, program, stop, std::cout, std::cerr);
  } catch (const std::exception& failure) {
    std::cerr << "lidar_web: " << failure.what() << std::endl;
    return 1;
  }
}
