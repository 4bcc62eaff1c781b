// Runs a program for a test: its output by pipes, its signals, its end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kerul::lidar::testing {

// How long a test waits for what must come. Far above what a slow machine needs: it is only spent
// when a test fails.
inline constexpr std::chrono::milliseconds kPatience{60'000};

enum class Stream { kOut, kErr };

// A running program. Not for use by several threads. The destructor kills and reaps what still
// runs; the program also dies with the test.
class ChildProcess {
 public:
  // Starts command[0] with the other entries as arguments, in the given directory, which need not
  // be the test's. Its standard input is empty. Throws std::runtime_error when it cannot start.
  ChildProcess(std::vector<std::string> command, const std::filesystem::path& directory);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const noexcept { return pid_; }
  void Signal(int number) const;

  // Waits until the stream holds `text`, from where the last successful wait for this stream left
  // off. False when time or output ends before.
  bool WaitFor(Stream stream, std::string_view text, std::chrono::milliseconds timeout = kPatience);

  // Waits for the end: the exit status, 128 and the number of the signal that ended it, or nothing
  // when it still runs. The output is complete then.
  std::optional<int> WaitForExit(std::chrono::milliseconds timeout = kPatience);

  // Interrupts and waits for the end.
  std::optional<int> Interrupt(std::chrono::milliseconds timeout = kPatience);

  // All output up to now.
  const std::string& Out() { return Take(out_); }
  const std::string& Err() { return Take(err_); }

 private:
  using Clock = std::chrono::steady_clock;
  struct Pipe {
    int fd = -1;
    std::string text;
    std::size_t searched = 0;
  };

  const std::string& Take(Pipe& pipe);
  bool Drain(std::chrono::milliseconds timeout);
  bool TryReap();

  pid_t pid_ = -1;
  std::optional<int> status_;
  Pipe out_;
  Pipe err_;
};

}  // namespace kerul::lidar::testing
