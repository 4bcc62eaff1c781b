// A simulated sensor: raw packets over UDP or into a capture file, with the truth beside them.
#include <CLI/CLI.hpp>
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
#include "sensor_simulator/scenes.h"
#include "sensor_simulator/stream_runner.h"

namespace {

namespace sim = kerul::lidar::simulator;

std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void RequestStop(int) { stop_requested.store(true); }

void AddFaultOptions(CLI::App& app, sim::FaultRates& faults) {
  const auto rate = [&](const char* name, double& value, const char* text) {
    app.add_option(name, value, text)
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str()
        ->group("Faults");
  };
  rate("--loss", faults.loss, "Share of packets that are not sent");
  rate("--duplicate", faults.duplicate, "Share of packets that are sent twice");
  rate("--reorder", faults.reorder, "Share of packets that change places with a later one");
  rate("--frame-jump", faults.frame_jump, "Share of frames at which the frame id jumps");
  rate("--foreign", faults.foreign, "Datagrams of another sender per packet");
  rate("--other-version", faults.other_version, "Share of packets that arrive as version 7.10");
  rate("--short", faults.short_datagram, "Share of packets that arrive cut");
}

void AddStreamOptions(CLI::App& app, sim::StreamOptions& options) {
  app.add_option("--scene", options.scene, "What the sensor looks at")
      ->check(CLI::IsMember(sim::SceneNames()))
      ->capture_default_str();
  app.add_option("--seed", options.sensor.seed, "Of photon noise and faults")
      ->capture_default_str();
  app.add_option("--serial", options.sensor.serial, "Of the sensor: gains and delays of its pixels")
      ->capture_default_str();
  app.add_option("--rate", options.frames_per_second, "Frames per second")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--frames", options.frames, "Stop after so many frames; 0 goes on")
      ->capture_default_str();
  app.add_option("--seconds", options.seconds, "Stop after so many seconds of stream; 0 goes on")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  app.add_option("--first-frame", options.first_frame, "Number of the first frame")
      ->capture_default_str();
  app.add_option("--loop", options.loop,
                 "Compute so many frames before the start and send them over and over")
      ->capture_default_str();
  app.add_flag("!--quiet", options.progress, "No progress line");
}

void AddOutputOptions(CLI::App& app, sim::StreamOptions& options) {
  app.add_option("--dest-ip", options.dest_ip, "Where the packets go")->capture_default_str();
  app.add_option("--dest-port", options.dest_port, "UDP port")->capture_default_str();
  app.add_option("--capture", options.capture_path,
                 "Write a capture file instead of sending; needs --frames or --seconds");
  app.add_option("--capture-source-ip", options.capture.source_ip, "Sender in the capture file")
      ->capture_default_str();
  app.add_option("--capture-dest-ip", options.capture.dest_ip, "Receiver in the capture file")
      ->capture_default_str();
  app.add_option("--truth", options.truth_path,
                 "Write the ground truth of every echo (format: truth_file.h)");
}

// What is not part of the packet stream.
struct ServiceOptions {
  std::string calibration_dir;  // not empty: write the calibration there
  std::string bind = "127.0.0.1";
  int rcx_port = -1;  // negative: no command service
  bool no_stream = false;
};

void AddServiceOptions(CLI::App& app, ServiceOptions& options) {
  app.add_option("--calibration", options.calibration_dir,
                 "Write the sensor's calibration below this directory, for a start without sensor");
  app.add_flag("--no-stream", options.no_stream, "Send and write no packets");
  app.add_option("--rcx-port", options.rcx_port,
                 "Answer register reads on this TCP port; 0 takes a free one")
      ->check(CLI::Range(0, 65535));
  app.add_option("--bind", options.bind, "Address of the command service")->capture_default_str();
}

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

int Run(const sim::StreamOptions& stream, const ServiceOptions& service) {
  std::unique_ptr<sim::CommandService> commands;
  if (service.rcx_port >= 0 || !service.calibration_dir.empty()) {
    const sim::CalibrationBlobs blobs = sim::MakeBlobs(stream.sensor);
    WriteCalibration(service.calibration_dir, blobs);
    if (service.rcx_port >= 0) {
      commands = std::make_unique<sim::CommandService>(
          sim::ServiceContent{blobs.head, blobs.main}, service.bind,
          static_cast<std::uint16_t>(service.rcx_port));
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
  sim::StreamOptions stream;
  ServiceOptions service;
  CLI::App app{"Simulated flash LiDAR: raw packets over UDP, or into a capture file"};
  AddStreamOptions(app, stream);
  AddOutputOptions(app, stream);
  AddServiceOptions(app, service);
  AddFaultOptions(app, stream.faults);
  CLI11_PARSE(app, argc, argv);
  if (!stream.capture_path.empty() && stream.frames == 0 && stream.seconds == 0.0) {
    std::fprintf(stderr, "--capture needs --frames or --seconds\n");
    return 1;
  }
  std::signal(SIGINT, RequestStop);
  std::signal(SIGTERM, RequestStop);
  try {
    return Run(stream, service);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sensor_simulator: %s\n", error.what());
    return 1;
  }
}
