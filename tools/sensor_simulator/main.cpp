// A simulated sensor: raw packets over UDP or into a capture file, with the truth beside them.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/command_service.h"
#include "sensor_simulator/options.h"
#include "sensor_simulator/stream_runner.h"
#include "standard_streams.h"

namespace {

namespace sim = kerul::lidar::simulator;

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void RequestStop(int) { stop_requested.store(true); }

void WriteCalibration(const std::string& directory, const sim::CalibrationBlobs& blobs) {
  if (directory.empty()) return;
  std::printf("calibration of %s in %s\n", blobs.lidar_id.c_str(),
              sim::WriteBlobs(blobs, directory).c_str());
}

void PrintSummary(const sim::StreamSummary& summary) {
  std::printf("%llu frames, %llu datagrams, %.1f MB in %.2f s\n",
              static_cast<unsigned long long>(summary.frames),
              static_cast<unsigned long long>(summary.datagrams),
              static_cast<double>(summary.bytes) * 1e-6, summary.elapsed_s);
  const sim::FaultCounts& faults = summary.faults;
  const std::uint64_t all = faults.lost + faults.duplicated + faults.reordered + faults.jumps +
                            faults.foreign + faults.other_version + faults.shortened;
  if (all == 0) return;
  std::printf(
      "faults: %llu lost, %llu duplicated, %llu reordered, %llu frame jumps, %llu foreign, "
      "%llu of another version, %llu cut\n",
      static_cast<unsigned long long>(faults.lost),
      static_cast<unsigned long long>(faults.duplicated),
      static_cast<unsigned long long>(faults.reordered),
      static_cast<unsigned long long>(faults.jumps),
      static_cast<unsigned long long>(faults.foreign),
      static_cast<unsigned long long>(faults.other_version),
      static_cast<unsigned long long>(faults.shortened));
}

int Run(const sim::StreamOptions& stream, const sim::ServiceOptions& service) {
  std::unique_ptr<sim::CommandService> commands;
  if (service.rcx_port >= 0 || !service.calibration_dir.empty()) {
    const sim::CalibrationBlobs blobs = sim::MakeBlobs(stream.sensor);
    WriteCalibration(service.calibration_dir, blobs);
    if (service.rcx_port >= 0) {
      commands = std::make_unique<sim::CommandService>(
          sim::ServiceContent{blobs.head, blobs.main}, service.bind,
          static_cast<std::uint16_t>(service.rcx_port), service.faults);
      std::printf("command service of %s on %s:%d\n", blobs.lidar_id.c_str(), service.bind.c_str(),
                  commands->port());
    }
    std::fflush(stdout);
  }
  if (!service.no_stream) {
    PrintSummary(sim::RunStream(stream, stop_requested, std::cout));
  } else if (commands != nullptr) {
    while (!stop_requested.load()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  sim::ProgramOptions options;
  int exit_status = 0;
  if (!sim::ParseOptions(argc, argv, options, exit_status)) return exit_status;
  std::signal(SIGINT, RequestStop);
  std::signal(SIGTERM, RequestStop);
  try {
    return Run(options.stream, options.service);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sensor_simulator: %s\n", error.what());
    return 1;
  }
}
