#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace kerul::lidar::testing {
namespace {

using std::chrono::milliseconds;

constexpr int kCannotExecute = 127;
// Room for a program's output while the test does something else: a full pipe would halt it.
constexpr int kPipeBytes = 1 << 20;
constexpr milliseconds kLook{10};  // between two looks at a process whose output has ended

struct PipeEnds {
  int read_end = -1;
  int write_end = -1;
};

PipeEnds OpenPipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[0], F_SETPIPE_SZ, kPipeBytes);  // a refusal leaves the usual size
  return {ends[0], ends[1]};
}

// Between fork and exec: nothing but system calls.
[[noreturn]] void Become(char* const* argv, const char* directory, int out, int err) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);  // what the test itself inherited
  if (chdir(directory) == 0) execvp(argv[0], argv);
  _exit(kCannotExecute);
}

int ShellStatus(int status) {
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> command,
                           const std::filesystem::path& directory) {
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (std::string& argument : command) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::string where = directory.string();
  const PipeEnds out = OpenPipe();
  const PipeEnds err = OpenPipe();
  out_.fd = out.read_end;
  err_.fd = err.read_end;
  pid_ = fork();
  if (pid_ == 0) Become(argv.data(), where.c_str(), out.write_end, err.write_end);
  close(out.write_end);
  close(err.write_end);
  if (pid_ < 0) throw std::runtime_error("no process");
}

ChildProcess::~ChildProcess() {
  if (!TryReap()) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (const Pipe* pipe : {&out_, &err_}) {
    if (pipe->fd >= 0) close(pipe->fd);
  }
}

void ChildProcess::Signal(int number) const {
  if (!status_) kill(pid_, number);  // a reaped number may belong to another by now
}

// Reads what has come, waiting for more up to `timeout`. False when both streams have ended.
bool ChildProcess::Drain(milliseconds timeout) {
  pollfd waits[2] = {{out_.fd, POLLIN, 0}, {err_.fd, POLLIN, 0}};
  if (out_.fd < 0 && err_.fd < 0) return false;
  if (poll(waits, 2, static_cast<int>(timeout.count())) <= 0) return true;
  for (Pipe* pipe : {&out_, &err_}) {
    char bytes[4096];
    ssize_t got = -1;
    while (pipe->fd >= 0 && (got = read(pipe->fd, bytes, sizeof(bytes))) > 0) {
      pipe->text.append(bytes, static_cast<std::size_t>(got));
    }
    if (pipe->fd >= 0 && got == 0) {
      close(pipe->fd);
      pipe->fd = -1;
    }
  }
  return true;
}

bool ChildProcess::TryReap() {
  int status = 0;
  if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) status_ = ShellStatus(status);
  return status_.has_value();
}

const std::string& ChildProcess::Take(Pipe& pipe) {
  Drain(milliseconds(0));
  return pipe.text;
}

bool ChildProcess::WaitFor(Stream stream, std::string_view text, milliseconds timeout) {
  Pipe& pipe = stream == Stream::kOut ? out_ : err_;
  const Clock::time_point deadline = Clock::now() + timeout;
  for (;;) {
    const std::size_t at = pipe.text.find(text, pipe.searched);
    if (at != std::string::npos) {
      pipe.searched = at + text.size();
      return true;
    }
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (pipe.fd < 0 || left.count() <= 0) return false;
    Drain(left);
  }
}

std::optional<int> ChildProcess::WaitForExit(milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (!Drain(std::max(left, milliseconds(0)))) {
      if (TryReap()) return status_;
      poll(nullptr, 0, static_cast<int>(kLook.count()));
    }
    if (left.count() <= 0) return std::nullopt;
  }
}

std::optional<int> ChildProcess::Interrupt(milliseconds timeout) {
  Signal(SIGINT);
  return WaitForExit(timeout);
}

}  // namespace kerul::lidar::testing
