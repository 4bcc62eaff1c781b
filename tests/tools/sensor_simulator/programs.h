// Other programs, run by the tests.
#pragma once

#include <string>

namespace kerul::lidar::simulator {

struct CommandResult {
  int status = -1;  // exit status; -1 when the program did not end by itself
  std::string output;
};

// Runs a shell command and gives what it wrote to standard output.
CommandResult RunCommand(const std::string& command);

bool HasProgram(const std::string& name);

}  // namespace kerul::lidar::simulator
