// The two options of the program.
#pragma once

#include <optional>
#include <string>

namespace kerul::lidar {

struct CommandLine {
  std::string cali_path;           // calibration directory; empty: ask the sensor
  std::optional<int> exit_status;  // when set, everything is said and the program ends with it
};

// Four lines on standard error.
void print_usage(const char* argv0);

// Takes main's arguments. Help (exit status 0) wins over any fault elsewhere on the line. A fault
// (exit status 1) has printed its message and the usage on standard error; only the first is told.
CommandLine ParseCommandLine(int argc, const char* const* argv);

}  // namespace kerul::lidar
