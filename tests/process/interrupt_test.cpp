// Interrupts in every phase of the node's life.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

const std::string kInterruptLine = "Interrupt signal (2) received.\n";

class Interrupt : public IsolatedProcessTest {};

// The text from the first interrupt line on.
std::string FromInterrupt(const std::string& out) {
  const std::size_t at = out.find(kInterruptLine);
  return at == std::string::npos ? "" : out.substr(at);
}

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST_F(Interrupt, AnIdleNodeEndsWell) {
  const auto node = StartCalibratedNode();
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(FromInterrupt(node->Out()), kInterruptLine + kClosingLines);
  EXPECT_EQ(node->Err(), "");
}

// The masks of blocked signals of the threads besides the main one.
std::vector<unsigned long long> BlockedByWorkers(pid_t pid) {
  std::vector<unsigned long long> masks;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    if (thread.path().filename() == std::to_string(pid)) continue;
    std::ifstream status(thread.path() / "status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("SigBlk:", 0) == 0) masks.push_back(std::stoull(line.substr(7), nullptr, 16));
    }
  }
  return masks;
}

// An interrupt that cut the worker's wait for a datagram short would look like a failed read.
TEST_F(Interrupt, TheWorkerLeavesInterruptsToTheMainThread) {
  const auto node = StartCalibratedNode();
  // A thread begins with all signals blocked.
  const std::vector<unsigned long long> interrupt_alone{1ULL << (SIGINT - 1)};
  EXPECT_TRUE(WaitUntil([&] { return BlockedByWorkers(node->pid()) == interrupt_alone; }));
}

// A user who holds the keys down, or a supervisor and a user at the same time. The interrupts
// continue through the worker's last waits and the process's exit.
TEST_F(Interrupt, AHailOfInterruptsOnlyPrintsTheLineAgain) {
  for (int round = 0; round < 8; ++round) {
    const auto node = StartCalibratedNode();
    ASSERT_TRUE(WaitUntil([&] {
      for (int i = 0; i < 200; ++i) node->Signal(SIGINT);
      return node->WaitForExit(std::chrono::milliseconds(0)).has_value();
    })) << "the node hangs in round "
        << round;
    EXPECT_EQ(node->WaitForExit(), 0) << "round " << round;
    EXPECT_EQ(node->Err(), "") << "round " << round;
    const std::string tail = FromInterrupt(node->Out());
    // No line but these, whatever the interrupts came upon.
    EXPECT_EQ(tail.size(),
              CountOf(tail, kInterruptLine) * kInterruptLine.size() + kClosingLines.size())
        << tail;
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
