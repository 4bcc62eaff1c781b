// The log's writing without waiting, over every kind of file that a standard stream may be.
#include "log_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

using std::chrono::steady_clock;

// Two ends of something that holds a limited number of bytes; nobody reads unless a test does.
struct Ends {
  int reader = -1;
  int writer = -1;
  Ends() = default;
  Ends(const Ends&) = delete;
  Ends& operator=(const Ends&) = delete;
  ~Ends() {
    close(reader);
    close(writer);
  }
};

void OpenPipe(Ends& ends) {
  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  ends.reader = fds[0];
  ends.writer = fds[1];
}

void OpenTerminal(Ends& ends) {
  ASSERT_EQ(openpty(&ends.reader, &ends.writer, nullptr, nullptr, nullptr), 0);
  termios mode{};
  ASSERT_EQ(tcgetattr(ends.writer, &mode), 0);
  cfmakeraw(&mode);  // bytes come out as they went in
  ASSERT_EQ(tcsetattr(ends.writer, TCSANOW, &mode), 0);
}

void OpenSocket(Ends& ends, int type) {
  int fds[2];
  ASSERT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds), 0);
  ends.reader = fds[0];
  ends.writer = fds[1];
}

// Everything that is there to read.
std::string TakeAll(int fd) {
  fcntl(fd, F_SETFL, O_NONBLOCK);
  std::string text;
  char bytes[4096];
  for (ssize_t got = 0; (got = read(fd, bytes, sizeof(bytes))) > 0;) {
    text.append(bytes, static_cast<std::size_t>(got));
  }
  return text;
}

// Writes numbered lines until they are no longer taken; what was taken has to come out whole.
void FillAndEmpty(const Ends& ends, int wait_ms = 0) {
  const LogDescriptor log(ends.writer);
  EXPECT_EQ(fcntl(ends.writer, F_GETFL) & O_NONBLOCK, 0) << "others share this file";
  const auto begin = steady_clock::now();
  std::string sent;
  int refused = 0;
  for (int i = 0; refused < 3 && i < 1'000'000; ++i) {
    const std::string line = "line " + std::to_string(i) + " of a log that nobody reads\n";
    const std::size_t taken = log.Write(line, wait_ms);
    sent += line.substr(0, taken);
    if (taken < line.size()) ++refused;
  }
  EXPECT_EQ(refused, 3);
  EXPECT_GE(sent.size(), 1000U);
  EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(20));
  std::string read_back = TakeAll(ends.reader);
  EXPECT_EQ(read_back, sent);
  EXPECT_EQ(log.Write("again\n", 0), 6U);
  EXPECT_EQ(TakeAll(ends.reader), "again\n");
}

TEST(LogDescriptor, NeverWaitsForAFullPipe) {
  Ends ends;
  OpenPipe(ends);
  FillAndEmpty(ends);
}

TEST(LogDescriptor, NeverWaitsForATerminalThatNobodyReads) {
  Ends ends;
  OpenTerminal(ends);
  FillAndEmpty(ends);
}

TEST(LogDescriptor, NeverWaitsForAStoppedTerminal) {
  Ends ends;
  OpenTerminal(ends);
  ASSERT_EQ(tcflow(ends.writer, TCOOFF), 0);  // as Ctrl-S does
  const LogDescriptor log(ends.writer);
  EXPECT_EQ(log.Write("a line\n", 0), 0U);
  ASSERT_EQ(tcflow(ends.writer, TCOON), 0);
  EXPECT_EQ(log.Write("a line\n", 0), 7U);
}

TEST(LogDescriptor, NeverWaitsForAFullSocket) {
  Ends ends;
  OpenSocket(ends, SOCK_STREAM);
  FillAndEmpty(ends);
}

// Where a second opening is not permitted. Without a descriptor for it, here.
TEST(LogDescriptor, NeverWaitsForAPipeThatItCannotOpenAgain) {
  Ends ends;
  OpenPipe(ends);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit limit = before;
  limit.rlim_cur = 64;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  FillAndEmpty(ends);
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST(LogDescriptor, WaitsAsLongAsItIsTold) {
  Ends ends;
  OpenPipe(ends);
  const auto begin = steady_clock::now();
  FillAndEmpty(ends, 50);
  EXPECT_GE(steady_clock::now() - begin, std::chrono::milliseconds(3 * 50));
}

TEST(LogDescriptor, AFileThatIsNotOpenTakesNothing) {
  const int fd = dup(STDOUT_FILENO);
  close(fd);
  const LogDescriptor log(fd);
  EXPECT_EQ(log.Write("a line\n", 1000), 0U);
}

TEST(LogDescriptor, AFileGoesOnWhereItsOtherWritersAre) {
  const TempDir directory;
  const std::string path = directory.path() / "log";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const LogDescriptor log(fd);
  ASSERT_EQ(write(fd, "one\n", 4), 4);
  EXPECT_EQ(log.Write("two\n", 0), 4U);
  ASSERT_EQ(write(fd, "three\n", 6), 6);
  ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
  EXPECT_EQ(TakeAll(fd), "one\ntwo\nthree\n");
  close(fd);
}

// A socket that keeps messages apart shows what was one write.
TEST(LogStream, ALineIsOneWriteHoweverManyPiecesMakeIt) {
  Ends ends;
  OpenSocket(ends, SOCK_SEQPACKET);
  fcntl(ends.reader, F_SETFL, O_NONBLOCK);
  LogStream buffer(ends.writer);
  std::ostream log(&buffer);
  const auto next = [&] {
    char bytes[100];
    const ssize_t got = recv(ends.reader, bytes, sizeof(bytes), 0);
    return got < 0 ? "[none]" : std::string(bytes, static_cast<std::size_t>(got));
  };
  log << "a" << 1 << ' ' << 2.5;
  EXPECT_EQ(next(), "[none]");
  log << '\n';
  EXPECT_EQ(next(), "a1 2.5\n");
  log << "one\ntwo\nthr";
  EXPECT_EQ(next(), "one\ntwo\n");
  log << std::flush;
  EXPECT_EQ(next(), "thr");
  log << std::endl;
  EXPECT_EQ(next(), "\n");
  EXPECT_EQ(next(), "[none]");
  EXPECT_EQ(buffer.DroppedLines(), 0U);
}

TEST(LogStream, DroppedLinesAreCountedAndEveryOtherComesOutWhole) {
  for (const auto open : {OpenPipe, OpenTerminal}) {
    Ends ends;
    open(ends);
    LogStream buffer(ends.writer);
    std::ostream log(&buffer);
    constexpr int kLines = 5000;  // of 23 bytes: more than either holds
    const auto text = [](int i) { return "the line " + std::to_string(100'000 + i) + " ends\n"; };
    for (int i = 0; i < kLines; ++i) log << text(i);
    std::string out = TakeAll(ends.reader);
    log << "read again\n";
    out += TakeAll(ends.reader);
    const int taken = kLines - static_cast<int>(buffer.DroppedLines());
    EXPECT_LT(taken, kLines);
    EXPECT_GT(taken, 100);
    // A terminal may have room again in between, so that a later line follows a dropped one.
    std::size_t at = 0;
    int found = 0;
    for (int i = 0; i < kLines; ++i) {
      if (out.compare(at, text(i).size(), text(i)) != 0) continue;
      at += text(i).size();
      ++found;
    }
    EXPECT_EQ(found, taken);
    EXPECT_EQ(out.substr(at), "read again\n") << "or a line that is not whole";
  }
}

TEST(LogStream, WaitsOnceAndThenNoMoreUntilALineIsTaken) {
  Ends ends;
  OpenPipe(ends);
  LogStream buffer(ends.writer);
  std::ostream log(&buffer);
  while (buffer.DroppedLines() == 0) log << std::string(1000, 'x') << '\n';
  TakeAll(ends.reader);
  buffer.SetPatience(100);
  const auto begin = steady_clock::now();
  while (buffer.DroppedLines() < 20) log << std::string(1000, 'x') << '\n';
  const auto time = steady_clock::now() - begin;
  EXPECT_GE(time, std::chrono::milliseconds(100));
  EXPECT_LT(time, std::chrono::milliseconds(900));
}

// Runs until it is killed when the runtime's message waits for a reader for ever.
TEST(UncaughtException, EndsAProcessWhoseStandardErrorIsFull) {
  for (const bool is_full : {true, false}) {
    Ends ends;
    OpenPipe(ends);
    fcntl(ends.writer, F_SETFL, O_NONBLOCK);
    while (is_full && write(ends.writer, "x", 1) == 1) {
    }
    fcntl(ends.writer, F_SETFL, 0);
    const pid_t child = fork();
    if (child == 0) {
      dup2(ends.writer, STDERR_FILENO);
      EndInTimeAfterUncaughtExceptions();
      std::thread([] { throw std::runtime_error("the reason"); }).join();
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
    if (!is_full) {
      EXPECT_NE(TakeAll(ends.reader).find("what():  the reason\n"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
