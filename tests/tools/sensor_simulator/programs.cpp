#include "tools/sensor_simulator/programs.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>

namespace kerul::lidar::simulator {

CommandResult RunCommand(const std::string& command) {
  CommandResult result;
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> buffer{};
  std::size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
    result.output.append(buffer.data(), count);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

bool HasProgram(const std::string& name) {
  return RunCommand("command -v " + name + " 2>/dev/null").status == 0;
}

}  // namespace kerul::lidar::simulator
