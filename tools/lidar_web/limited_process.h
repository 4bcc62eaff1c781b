// Runs another program for the server: without a shell, behind everything else that the machine
// does, and within bounds.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kerul::lidar::web {

// What the program writes to: its standard error, and two more files for results.
inline constexpr int kErrorFd = 2;
inline constexpr std::array kResultFds{3, 4};
// A result file's name, to be given to the program.
std::string ResultPath(std::size_t which);

struct ProcessLimits {
  std::chrono::milliseconds time{10'000};
  std::size_t bytes = 8U << 20;  // of each output
};

struct ProcessResult {
  enum class End { kExit, kSignal, kNotStarted, kTooLong, kTooMuch, kNotWanted };
  End end = End::kNotStarted;
  int status = 0;  // exit status, or the signal's number
  std::string errors;
  std::array<std::vector<char>, 2> results;
};

// command[0] is the program's path. It gets the usual environment, empty input, /dev/null for its
// standard output and no other file of the server's; it dies with the calling thread. Looks at
// `wanted` some ten times a second. What runs on beyond its bounds is terminated, and killed when
// that does not help within a second.
ProcessResult RunLimited(const std::vector<std::string>& command, const ProcessLimits& limits,
                         const std::function<bool()>& wanted);

}  // namespace kerul::lidar::web
