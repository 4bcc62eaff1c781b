// A node whose log nobody reads: standard output and standard error are one full pipe or a terminal
// that takes nothing.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "datagram_sender.h"
#include "process_fixture.h"
#include "ring_tap.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::EndsWith;
using ::testing::HasSubstr;

const std::vector<std::uint8_t> kForeign(100, 0x55);  // gives a line of the log for each

class HungLog : public IsolatedProcessTest {
 protected:
  ~HungLog() override {
    for (const int fd : {log_, far_end_}) {
      if (fd >= 0) close(fd);
    }
  }

  // A pipe of one page.
  void OpenPipe() {
    const std::string path = Directory() / "log";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    log_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(log_, 0);
    ASSERT_GE(fcntl(log_, F_SETPIPE_SZ, 4096), 4096);
    name_ = path;
  }
  void OpenTerminal() {
    char name[100];
    ASSERT_EQ(openpty(&log_, &far_end_, name, nullptr, nullptr), 0);
    fcntl(log_, F_SETFL, O_NONBLOCK);
    name_ = name;
  }

  // `before` is run by the shell that becomes the node.
  std::unique_ptr<ChildProcess> StartLoggingNode(const std::string& before = "") {
    const std::vector<std::string> command{"/bin/sh",
                                           "-c",
                                           before + "exec \"$0\" --cali_path \"$1\" >\"$2\" 2>&1",
                                           kNodeProgram,
                                           CalibrationDirectory(),
                                           name_};
    auto node = std::make_unique<ChildProcess>(command, Directory());
    EXPECT_TRUE(WaitUntilRunning(*node));
    return node;
  }

  // What has come out of the log since the last call.
  std::string TakeLog() const {
    std::string text;
    char bytes[4096];
    for (ssize_t got = 0; (got = read(log_, bytes, sizeof(bytes))) > 0;) {
      text.append(bytes, static_cast<std::size_t>(got));
    }
    return text;
  }

  // More lines than pipe or terminal hold, then frames, all while nobody reads.
  void ExpectFramesWhileNobodyReads(ChildProcess& node) {
    const DatagramSender neighbour;
    for (int i = 0; i < 3000; ++i) {
      neighbour.Send(kForeign);
      if (i % 100 == 99) std::this_thread::sleep_for(1ms);
    }
    const auto stream = StartSimulator({"--quiet", "--loop", "2", "--rate", "4"});
    RingTap tap;
    for (int i = 0; i < 3; ++i) ASSERT_NE(tap.NextComplete(20s), nullptr) << "frame " << i;
    EXPECT_EQ(node.WaitForExit(0ms), std::nullopt);
  }
  static void ExpectPromptEnd(ChildProcess& node) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(node.Interrupt(20s), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  }

  int log_ = -1;      // the reader's end
  int far_end_ = -1;  // keeps the terminal open
  std::string name_;
};

TEST_F(HungLog, AFullPipeDoesNotStopTheFramesAndWhatWasDroppedIsTold) {
  OpenPipe();
  const auto node = StartLoggingNode();
  ExpectFramesWhileNobodyReads(*node);
  std::string log = TakeLog();
  EXPECT_EQ(log.rfind(StartLog(kSensorId, "local_cache", kSensorId), 0), 0U) << log;
  // When it is read again, it reports the figures with the next line.
  const DatagramSender neighbour;
  std::smatch figures;
  const std::regex told(
      "\\[WARN\\] log lines dropped since the start, as nobody took them: ([0-9]+) of standard "
      "output, 0 of standard error\n");
  ASSERT_TRUE(WaitUntil([&] {
    neighbour.Send(kForeign);
    log += TakeLog();
    return std::regex_search(log, figures, told);
  })) << log;
  EXPECT_GE(std::stoi(figures[1]), 1000);
  // Every line that came out is a whole one.
  const std::regex line(
      "\\[DEBUG\\] UDP header doesn't match 0xEE, 0xFF, .*|等效解包FPS: .*, received_count:[0-9]+|"
      "\\[WARN\\] .* of standard error|.*\\[LidarNode\\].*|\\[INFO\\] using .*|SocketSource::Open "
      ".*|"
      "ShmUdpWriter init ring: .*");
  std::istringstream lines(log);
  int checked = 0;
  for (std::string text; std::getline(lines, text) && !lines.eof(); ++checked) {
    EXPECT_TRUE(std::regex_match(text, line)) << text;
  }
  EXPECT_GT(checked, 40);
  ExpectPromptEnd(*node);
  log = TakeLog();
  // The worker may still log a packet between the interrupt and the end.
  EXPECT_THAT(log, HasSubstr("Interrupt signal (2) received.\n"));
  EXPECT_THAT(log, EndsWith(kClosingLines));
}

TEST_F(HungLog, AFullPipeDoesNotDelayTheEnd) {
  OpenPipe();
  const auto node = StartLoggingNode();
  ExpectFramesWhileNobodyReads(*node);
  ExpectPromptEnd(*node);
}

// Too few descriptors stand in for a pipe that belongs to somebody else.
TEST_F(HungLog, AFullPipeThatCannotBeOpenedAgainDoesNotStopTheFramesEither) {
  OpenPipe();
  const auto node = StartLoggingNode("ulimit -n 50; ");
  ExpectFramesWhileNobodyReads(*node);
  ExpectPromptEnd(*node);
}

TEST_F(HungLog, ATerminalThatNobodyReadsDoesNotStopTheFrames) {
  OpenTerminal();
  const auto node = StartLoggingNode();
  ExpectFramesWhileNobodyReads(*node);
  ExpectPromptEnd(*node);
}

TEST_F(HungLog, AStoppedTerminalDoesNotStopTheFrames) {
  OpenTerminal();
  const auto node = StartLoggingNode();
  TakeLog();
  ASSERT_EQ(tcflow(far_end_, TCOOFF), 0);  // as Ctrl-S does
  ExpectFramesWhileNobodyReads(*node);
  ExpectPromptEnd(*node);
  ASSERT_EQ(tcflow(far_end_, TCOON), 0);
}

TEST_F(HungLog, AStoppedTerminalDoesNotStopTheStart) {
  OpenTerminal();
  ASSERT_EQ(tcflow(far_end_, TCOOFF), 0);
  const auto node = StartLoggingNode();
  ExpectPromptEnd(*node);
  ASSERT_EQ(tcflow(far_end_, TCOON), 0);
}

// A packet of the sensor's version that claims ten channels.
TEST_F(HungLog, AFatalPacketEndsTheNodeAlthoughNobodyReadsWhy) {
  OpenPipe();
  const auto node = StartLoggingNode();
  ExpectFramesWhileNobodyReads(*node);
  std::vector<std::uint8_t> fatal(692, 0);
  fatal[0] = 0xEE;
  fatal[1] = 0xFF;
  fatal[2] = 7;
  fatal[3] = 11;
  const DatagramSender neighbour;
  neighbour.Send(fatal);
  EXPECT_EQ(node->WaitForExit(20s), 128 + SIGABRT);
}

}  // namespace
}  // namespace kerul::lidar::testing
