// The program's log: standard output and standard error, whose reader may stop reading.
//
// A full pipe, a stopped terminal or a hung remote shell makes a plain write wait, and with it the
// thread that logs. Here a line that nobody reads is dropped and counted instead. While the log is
// read, nothing changes: the call that ends a line writes it, in one piece, before it returns.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace kerul::lidar {

// Writes to an open file without waiting. O_NONBLOCK on the file itself would reach every process
// that shares it, the shell for one; so a pipe or terminal is opened a second time. Where that is
// not permitted, or a process with other rights owns it, a wait is possible only if another process
// fills the same pipe between the look and the write, or a terminal has room for part of a line.
class LogDescriptor {
 public:
  explicit LogDescriptor(int fd);  // stays the caller's
  ~LogDescriptor();
  LogDescriptor(const LogDescriptor&) = delete;
  LogDescriptor& operator=(const LogDescriptor&) = delete;

  // Gives the number of bytes taken; fewer than there are when the file has no room or fails.
  // Waits up to `wait_ms` each time there is no room. Async-signal-safe.
  std::size_t Write(std::string_view text, int wait_ms) const noexcept;

 private:
  enum class Kind { kPlain, kSocket, kReopened, kPolled };

  ssize_t WriteOnce(std::string_view text) const noexcept;

  int fd_;
  int reopened_ = -1;  // closed at the end
  Kind kind_ = Kind::kPlain;
};

// Passes whole lines on; text without an end of line waits for it or for a flush. The rest of a
// line that was taken in part goes out before anything else. Used by one thread at a time, except
// for the two atomic members.
class LogStream : public std::streambuf {
 public:
  explicit LogStream(int fd) : descriptor_(fd) {}

  const LogDescriptor& Descriptor() const noexcept { return descriptor_; }
  // How long a write may wait for room, unless the one before waited in vain.
  void SetPatience(int wait_ms) noexcept { patience_ms_ = wait_ms; }
  std::uint64_t DroppedLines() const noexcept { return dropped_lines_; }
  // Writes a text apart from the stream's own; false, and not counted, when it was not taken.
  bool Pass(std::string_view text);

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* text, std::streamsize count) override;
  int sync() override;
  // After each passing on, whether the lines were taken or dropped. May call Pass.
  virtual void LinesPassed() {}

 private:
  void PassLines(std::size_t bytes);

  LogDescriptor descriptor_;
  std::string line_;  // not passed on yet
  std::string rest_;  // of a line that was taken in part
  bool is_stalled_ = false;
  std::atomic<int> patience_ms_{0};
  std::atomic<std::uint64_t> dropped_lines_{0};
};

// Takes the place of the buffers of std::cout and std::cerr. The number of dropped lines is
// reported on standard error, at most once a second, as soon as it takes a line. Made once and
// never destroyed: the process's exit logs too.
class LogOutput {
 public:
  LogOutput();
  LogOutput(const LogOutput&) = delete;
  LogOutput& operator=(const LogOutput&) = delete;

  void SetPatience(int wait_ms) noexcept;
  // Reports what was dropped since the last report, without regard to the second.
  void Finish() { TellDropped(); }
  // For the interrupt handler.
  const LogDescriptor& Out() const noexcept { return out_.Descriptor(); }

 private:
  class Told : public LogStream {
   public:
    Told(int fd, LogOutput& owner) : LogStream(fd), owner_(owner) {}

   protected:
    void LinesPassed() override { owner_.TellNowAndThen(); }

   private:
    LogOutput& owner_;
  };

  void TellNowAndThen();
  void TellDropped();

  Told out_;
  Told err_;
  std::uint64_t told_lines_ = 0;
  std::chrono::steady_clock::time_point next_look_{};
};

// From now on an uncaught exception ends the process although nobody takes the runtime's message
// about it: a second for that, then it aborts all the same. Uses SIGALRM.
void EndInTimeAfterUncaughtExceptions();

}  // namespace kerul::lidar
