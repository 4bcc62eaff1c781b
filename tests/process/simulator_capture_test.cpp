// The simulator's capture files in the hands of the usual programs.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_tap.h"
#include "start_log.h"

namespace kerul::lidar::testing {
namespace {

constexpr int kPacketsPerFrame = 6912;

bool IsInstalled(const std::string& program) {
  std::istringstream directories(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
  for (std::string directory; std::getline(directories, directory, ':');) {
    if (access((directory + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

// Fills run.pcap in the simulator's working directory.
void Finish(const std::unique_ptr<ChildProcess>& simulator) {
  ASSERT_EQ(simulator->WaitForExit(), 0) << simulator->Err();
}

const std::vector<std::string> kTwoFrames{"--capture", "run.pcap", "--quiet", "--frames", "2"};

class SimulatorCapture : public ProcessTest {};
class SimulatorReplay : public IsolatedProcessTest {};

TEST_F(SimulatorCapture, OpensInTsharkWithEveryChecksumRight) {
  if (!IsInstalled("tshark")) GTEST_SKIP() << "tshark is not installed";
  Finish(StartSimulator(kTwoFrames));
  ChildProcess tshark({"env",
                       "HOME=.",
                       "tshark",
                       "-r",
                       "run.pcap",
                       "-o",
                       "ip.check_checksum:TRUE",
                       "-o",
                       "udp.check_checksum:TRUE",
                       "-T",
                       "fields",
                       "-E",
                       "separator= ",
                       "-e",
                       "ip.checksum.status",
                       "-e",
                       "udp.checksum.status",
                       "-e",
                       "udp.srcport",
                       "-e",
                       "udp.dstport",
                       "-e",
                       "udp.length",
                       "-e",
                       "frame.time_relative"},
                      Directory());
  ASSERT_EQ(tshark.WaitForExit(), 0) << tshark.Err();
  std::istringstream lines(tshark.Out());
  int packets = 0;
  double last_s = 0.0;
  for (std::string line; std::getline(lines, line); ++packets) {
    std::istringstream fields(line);
    std::vector<int> numbers(5);
    double time_s = -1.0;
    for (int& number : numbers) fields >> number;
    fields >> time_s;
    // Status 1: the checksum is good. The UDP header counts as well.
    ASSERT_EQ(numbers, (std::vector<int>{1, 1, 2368, 2368, 8 + 692})) << line;
    ASSERT_GE(time_s, last_s) << line;
    last_s = time_s;
  }
  EXPECT_EQ(packets, 2 * kPacketsPerFrame);
  // Two frames at 10 Hz: the second begins after 0.1 s and takes most of a period.
  EXPECT_GT(last_s, 0.15);
  EXPECT_LT(last_s, 0.2);
}

TEST_F(SimulatorReplay, RunsOntoTheLoopbackInterfaceIntoTheNode) {
  if (!IsInstalled("tcpreplay")) GTEST_SKIP() << "tcpreplay is not installed";
  // A sensor's address that leads nowhere from here must not be filtered out.
  for (const char* interface : {"all", "lo"}) {
    std::ofstream(std::string("/proc/sys/net/ipv4/conf/") + interface + "/rp_filter") << 0;
  }
  Finish(StartSimulator(kTwoFrames));
  const auto node = StartCalibratedNode();
  ChildProcess tcpreplay({"tcpreplay", "-i", "lo", "--pps", "6000", "--loop", "200", "run.pcap"},
                         Directory());
  RingTap tap;
  int filled = 0;
  while (filled < 2) {
    const CollectedFrame* frame = tap.NextComplete();
    ASSERT_NE(frame, nullptr) << node->Out() << tcpreplay.Out() << tcpreplay.Err();
    if (CountReturns(*frame) > 216 * 288 / 4) ++filled;
  }
  EXPECT_TRUE(node->WaitFor(Stream::kOut, ", received_count:6912\n"));
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(WithoutLosses(node->Err()), "");
}

}  // namespace
}  // namespace kerul::lidar::testing
