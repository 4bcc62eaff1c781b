#include "sensor_simulator/options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>

#include "sensor_simulator/scenes.h"
#include "sensor_simulator/service_fault_options.h"
#include "support/number_options.h"

namespace kerul::lidar::simulator {
namespace {

void AddFaultOptions(CLI::App& app, FaultRates& faults) {
  const auto rate = [&](const char* name, double& value, const char* text) {
    app.add_option(name, value, text)
        ->check(FiniteNumber(0.0, 1.0))
        ->capture_default_str()
        ->group("Faults of the stream");
  };
  rate("--loss", faults.loss, "Share of packets that are not sent");
  rate("--duplicate", faults.duplicate, "Share of packets that are sent twice");
  rate("--reorder", faults.reorder, "Share of packets that change places with a later one");
  rate("--frame-jump", faults.frame_jump, "Share of frames at which the frame id jumps");
  rate("--foreign", faults.foreign, "Datagrams of another sender per packet");
  rate("--other-version", faults.other_version, "Share of packets that arrive as version 7.10");
  rate("--short", faults.short_datagram, "Share of packets that arrive cut");
}

void AddStreamOptions(CLI::App& app, StreamOptions& options) {
  app.add_option("--scene", options.scene, "What the sensor looks at")
      ->check(CLI::IsMember(SceneNames()))
      ->capture_default_str();
  app.add_option("--seed", options.sensor.seed, "Of photon noise and faults")
      ->check(WholeNumberOf(options.sensor.seed))
      ->capture_default_str();
  app.add_option("--serial", options.sensor.serial, "Of the sensor: gains and delays of its pixels")
      ->check(WholeNumberOf(options.sensor.serial))
      ->capture_default_str();
  app.add_option("--rate", options.frames_per_second, "Frames per second")
      ->check(PositiveNumber())
      ->capture_default_str();
  app.add_option("--frames", options.frames, "Stop after so many frames; 0 goes on")
      ->check(WholeNumberOf(options.frames))
      ->capture_default_str();
  app.add_option("--seconds", options.seconds, "Stop after so many seconds of stream; 0 goes on")
      ->check(FiniteNumber(0.0, std::numeric_limits<double>::max()))
      ->capture_default_str();
  app.add_option("--first-frame", options.first_frame, "Number of the first frame")
      ->check(WholeNumberOf(options.first_frame))
      ->capture_default_str();
  app.add_option("--loop", options.loop,
                 "Compute so many frames before the start and send them over and over")
      ->check(WholeNumberOf(options.loop))
      ->capture_default_str();
  app.add_flag("!--quiet", options.progress, "No progress line");
}

void AddOutputOptions(CLI::App& app, StreamOptions& options) {
  app.add_option("--dest-ip", options.dest_ip, "Where the packets go")->capture_default_str();
  app.add_option("--dest-port", options.dest_port, "UDP port")
      ->check(WholeNumberOf(options.dest_port))
      ->capture_default_str();
  app.add_option("--capture", options.capture_path,
                 "Write a capture file instead of sending; needs --frames or --seconds");
  app.add_option("--capture-source-ip", options.capture.source_ip, "Sender in the capture file")
      ->capture_default_str();
  app.add_option("--capture-dest-ip", options.capture.dest_ip, "Receiver in the capture file")
      ->capture_default_str();
  app.add_option("--truth", options.truth_path,
                 "Write the ground truth of every echo (format: truth_file.h)");
}

void AddServiceOptions(CLI::App& app, ServiceOptions& options) {
  app.add_option("--calibration", options.calibration_dir,
                 "Write the sensor's calibration below this directory, for a start without sensor");
  app.add_flag("--no-stream", options.no_stream, "Send and write no packets");
  CLI::Option* rcx_port =
      app.add_option("--rcx-port", options.rcx_port,
                     "Answer register reads on this TCP port; 0 takes a free one")
          ->check(WholeNumber(0, 65535));
  app.add_option("--bind", options.bind, "Address of the command service")->capture_default_str();
  AddServiceFaultOptions(app, rcx_port, options.faults);
}

}  // namespace

bool ParseOptions(int argc, const char* const* argv, ProgramOptions& options, int& exit_status) {
  CLI::App app{"Simulated flash LiDAR: raw packets over UDP, or into a capture file"};
  AddStreamOptions(app, options.stream);
  AddOutputOptions(app, options.stream);
  AddServiceOptions(app, options.service);
  AddFaultOptions(app, options.stream.faults);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exit_status = app.exit(error);
    return false;
  }
  const StreamOptions& stream = options.stream;
  if (!stream.capture_path.empty() && stream.frames == 0 && stream.seconds == 0.0) {
    std::fprintf(stderr, "--capture needs --frames or --seconds\n");
    exit_status = 1;
    return false;
  }
  return true;
}

}  // namespace kerul::lidar::simulator
