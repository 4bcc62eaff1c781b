#include "log_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace kerul::lidar {
namespace {

// Out of the way of the descriptors that the node names in its log.
constexpr int kFirstOwnDescriptor = 100;
constexpr int kOpenFlags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool IsSameTerminal(int one, int other) noexcept {
  unsigned one_device = 0;
  unsigned other_device = 1;
  return ::ioctl(one, TIOCGDEV, &one_device) == 0 && ::ioctl(other, TIOCGDEV, &other_device) == 0 &&
         one_device == other_device;
}

// A second opening of the pipe or terminal, -1 when it is not permitted.
int Reopen(int fd, bool is_terminal) noexcept {
  char path[32];
  std::snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
  int again = ::open(path, kOpenFlags);
  if (again < 0 && is_terminal) {
    // Somebody else's terminal may still be the controlling one, which everybody may open.
    again = ::open("/dev/tty", kOpenFlags);
    if (again >= 0 && !IsSameTerminal(fd, again)) {
      ::close(again);
      again = -1;
    }
  }
  if (again < 0) return -1;
  const int moved = ::fcntl(again, F_DUPFD_CLOEXEC, kFirstOwnDescriptor);
  ::close(again);
  return moved;
}

bool HasRoom(int fd, int wait_ms) noexcept {
  pollfd wait{fd, POLLOUT, 0};
  return ::poll(&wait, 1, wait_ms) > 0;
}

}  // namespace

LogDescriptor::LogDescriptor(int fd) : fd_(fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) return;
  const bool is_terminal = S_ISCHR(status.st_mode) && ::isatty(fd) == 1;
  if (S_ISSOCK(status.st_mode)) {
    kind_ = Kind::kSocket;
  } else if (S_ISFIFO(status.st_mode) || is_terminal) {
    reopened_ = Reopen(fd, is_terminal);
    kind_ = reopened_ < 0 ? Kind::kPolled : Kind::kReopened;
    if (reopened_ >= 0) fd_ = reopened_;
  }
}

LogDescriptor::~LogDescriptor() {
  if (reopened_ >= 0) ::close(reopened_);
}

ssize_t LogDescriptor::WriteOnce(std::string_view text) const noexcept {
  if (kind_ == Kind::kSocket) return ::send(fd_, text.data(), text.size(), MSG_DONTWAIT);
  if (kind_ != Kind::kPolled) return ::write(fd_, text.data(), text.size());
  if (!HasRoom(fd_, 0)) {
    errno = EAGAIN;
    return -1;
  }
  // A pipe that has room at all has room for that much.
  return ::write(fd_, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

std::size_t LogDescriptor::Write(std::string_view text, int wait_ms) const noexcept {
  const std::size_t size = text.size();
  while (!text.empty()) {
    const ssize_t written = WriteOnce(text);
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK) break;
    if (wait_ms <= 0 || !HasRoom(fd_, wait_ms)) break;
  }
  return size - text.size();
}

bool LogStream::Pass(std::string_view text) {
  const int wait_ms = is_stalled_ ? 0 : patience_ms_.load();
  rest_.erase(0, descriptor_.Write(rest_, wait_ms));
  is_stalled_ = !rest_.empty();
  if (is_stalled_) return false;
  const std::size_t taken = descriptor_.Write(text, wait_ms);
  is_stalled_ = taken < text.size();
  if (taken == 0) return text.empty();
  rest_ = text.substr(taken);
  return true;
}

void LogStream::PassLines(std::size_t bytes) {
  const std::string_view text = std::string_view(line_).substr(0, bytes);
  if (!Pass(text)) {
    const auto lines = static_cast<std::uint64_t>(std::ranges::count(text, '\n'));
    dropped_lines_ += std::max<std::uint64_t>(lines, 1);
  }
  line_.erase(0, bytes);
  LinesPassed();
}

LogStream::int_type LogStream::overflow(int_type character) {
  if (traits_type::eq_int_type(character, traits_type::eof()))
    return traits_type::not_eof(character);
  const char byte = traits_type::to_char_type(character);
  LogStream::xsputn(&byte, 1);
  return character;
}

std::streamsize LogStream::xsputn(const char* text, std::streamsize count) {
  line_.append(text, static_cast<std::size_t>(count));
  const std::size_t end = line_.rfind('\n');
  if (end != std::string::npos) PassLines(end + 1);
  return count;
}

int LogStream::sync() {
  if (!line_.empty()) PassLines(line_.size());
  return 0;
}

LogOutput::LogOutput() : out_(STDOUT_FILENO, *this), err_(STDERR_FILENO, *this) {
  std::cout.rdbuf(&out_);
  std::cerr.rdbuf(&err_);
  // Otherwise each piece of a line would be flushed by itself.
  std::cerr.unsetf(std::ios::unitbuf);
}

void LogOutput::SetPatience(int wait_ms) noexcept {
  out_.SetPatience(wait_ms);
  err_.SetPatience(wait_ms);
}

void LogOutput::TellNowAndThen() {
  if (out_.DroppedLines() + err_.DroppedLines() == told_lines_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_look_) return;
  next_look_ = now + std::chrono::seconds(1);
  TellDropped();
}

void LogOutput::TellDropped() {
  const std::uint64_t out = out_.DroppedLines();
  const std::uint64_t err = err_.DroppedLines();
  if (out + err == told_lines_) return;
  const std::string text =
      "[WARN] log lines dropped since the start, as nobody took them: " + std::to_string(out) +
      " of standard output, " + std::to_string(err) + " of standard error\n";
  if (err_.Pass(text)) told_lines_ = out + err;
}

void EndInTimeAfterUncaughtExceptions() {
  static const std::terminate_handler runtime_handler = std::get_terminate();
  std::set_terminate([] {
    std::signal(SIGALRM, [](int) { std::abort(); });
    alarm(1);
    runtime_handler();
  });
}

}  // namespace kerul::lidar
