#include "lidar_web/limited_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "support/open_file.h"

namespace kerul::lidar::web {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kOutputs = 1 + kResultFds.size();
constexpr std::chrono::milliseconds kLook{100};
constexpr std::chrono::milliseconds kGrace{1000};
constexpr int kCannotStart = 127;

struct Pipe {
  OpenFile read;
  OpenFile write;
};

bool MakePipe(Pipe& pipe) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe = {OpenFile(ends[0]), OpenFile(ends[1])};
  return true;
}

// Behind all others; where that is forbidden it runs as they do.
void StepBack() {
  constexpr int kLowest = 19;
  constexpr int kThisProcess = 1;  // of ioprio_set
  constexpr int kIdleClass = 3 << 13;
  setpriority(PRIO_PROCESS, 0, kLowest);
  syscall(SYS_ioprio_set, kThisProcess, 0, kIdleClass);
}

// Between fork and exec: only calls that a signal handler may make.
[[noreturn]] void Become(char* const* words, const std::array<Pipe, kOutputs>& pipes, int nothing) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  StepBack();
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // First out of the way of the numbers that they are to get.
  constexpr int kAside = 100;
  int outputs[kOutputs];
  const int empty = fcntl(nothing, F_DUPFD, kAside);
  bool all = empty >= 0;
  for (std::size_t i = 0; i < kOutputs; ++i) {
    outputs[i] = fcntl(pipes[i].write.Fd(), F_DUPFD, kAside);
    all = all && outputs[i] >= 0;
  }
  // Otherwise it would write its results into the server's own files.
  if (!all) _exit(kCannotStart);
  dup2(empty, STDIN_FILENO);
  dup2(empty, STDOUT_FILENO);
  for (std::size_t i = 0; i < kOutputs; ++i) dup2(outputs[i], kErrorFd + static_cast<int>(i));
  if (syscall(SYS_close_range, kErrorFd + kOutputs, ~0U, 0) != 0) _exit(kCannotStart);
  execv(words[0], words);
  _exit(kCannotStart);
}

// Gives false when the output is longer than it may be.
bool Take(OpenFile& file, std::size_t most, std::string& text) {
  std::array<char, 65536> piece;
  const ssize_t size = read(file.Fd(), piece.data(), piece.size());
  if (size < 0 && errno == EINTR) return true;
  if (size <= 0) {
    file.Close();
    return true;
  }
  text.append(piece.data(), static_cast<std::size_t>(size));
  return text.size() <= most;
}

class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}

  void Terminate() {
    kill(pid_, SIGTERM);
    if (!WaitFor(kGrace)) {
      kill(pid_, SIGKILL);
      waitpid(pid_, &status_, 0);
    }
  }
  bool WaitFor(std::chrono::milliseconds time) {
    const auto end = Clock::now() + time;
    while (waitpid(pid_, &status_, WNOHANG) == 0) {
      if (Clock::now() >= end) return false;
      usleep(5000);
    }
    return true;
  }
  ProcessResult::End End(int& status) const {
    if (WIFSIGNALED(status_)) {
      status = WTERMSIG(status_);
      return ProcessResult::End::kSignal;
    }
    status = WEXITSTATUS(status_);
    return status == kCannotStart ? ProcessResult::End::kNotStarted : ProcessResult::End::kExit;
  }

 private:
  pid_t pid_;
  int status_ = 0;
};

// Reads until all outputs are closed. Gives why it must not go on, or kExit.
ProcessResult::End ReadAll(std::array<Pipe, kOutputs>& pipes, const ProcessLimits& limits,
                           Clock::time_point end, const std::function<bool()>& wanted,
                           std::array<std::string, kOutputs>& texts) {
  using End = ProcessResult::End;
  for (;;) {
    std::array<pollfd, kOutputs> files{};
    bool any_open = false;
    for (std::size_t i = 0; i < kOutputs; ++i) {
      files[i] = {pipes[i].read.Fd(), POLLIN, 0};
      any_open = any_open || pipes[i].read.IsOpen();
    }
    if (!any_open) return End::kExit;
    poll(files.data(), files.size(), static_cast<int>(kLook.count()));
    for (std::size_t i = 0; i < kOutputs; ++i) {
      if (files[i].revents == 0) continue;
      if (!Take(pipes[i].read, limits.bytes, texts[i])) return End::kTooMuch;
    }
    if (!wanted()) return End::kNotWanted;
    if (Clock::now() >= end) return End::kTooLong;
  }
}

}  // namespace

std::string ResultPath(std::size_t which) {
  return "/proc/self/fd/" + std::to_string(kResultFds[which]);
}

ProcessResult RunLimited(const std::vector<std::string>& command, const ProcessLimits& limits,
                         const std::function<bool()>& wanted) {
  ProcessResult result;
  const auto end = Clock::now() + limits.time;
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  std::array<Pipe, kOutputs> pipes;
  const OpenFile nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (Pipe& pipe : pipes) {
    if (!MakePipe(pipe) || !nothing.IsOpen()) return result;
  }
  const pid_t pid = fork();
  if (pid < 0) return result;
  if (pid == 0) Become(words.data(), pipes, nothing.Fd());
  for (Pipe& pipe : pipes) pipe.write.Close();
  Child child(pid);
  std::array<std::string, kOutputs> texts;
  result.end = ReadAll(pipes, limits, end, wanted, texts);
  // It closes its outputs when it ends, and has no reason to stay longer.
  if (result.end != ProcessResult::End::kExit || !child.WaitFor(kGrace)) {
    child.Terminate();
    if (result.end == ProcessResult::End::kExit) result.end = ProcessResult::End::kTooLong;
    return result;
  }
  result.end = child.End(result.status);
  result.errors = std::move(texts[0]);
  for (std::size_t i = 0; i < result.results.size(); ++i) {
    result.results[i].assign(texts[1 + i].begin(), texts[1 + i].end());
  }
  return result;
}

}  // namespace kerul::lidar::web
