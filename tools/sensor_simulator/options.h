// The simulator's command line.
#pragma once

#include <string>

#include "sensor_simulator/command_service.h"
#include "sensor_simulator/stream_runner.h"

namespace kerul::lidar::simulator {

// What is not part of the packet stream.
struct ServiceOptions {
  std::string calibration_dir;  // not empty: write the calibration there
  std::string bind = "127.0.0.1";
  int rcx_port = -1;  // negative: no command service
  bool no_stream = false;
  ServiceFaults faults;
};

struct ProgramOptions {
  StreamOptions stream;
  ServiceOptions service;
};

// False when the program is to end with `exit_status` at once: the usage or, on standard error, the
// problem was printed.
bool ParseOptions(int argc, const char* const* argv, ProgramOptions& options, int& exit_status);

}  // namespace kerul::lidar::simulator
