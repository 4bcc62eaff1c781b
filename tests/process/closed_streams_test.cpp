// Programs that are started without standard streams, as some supervisors do.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_mapping.h"

namespace kerul::lidar::testing {
namespace {

class ClosedStreams : public IsolatedProcessTest {
 protected:
  // Runs the program by a shell that closes the streams before it.
  std::unique_ptr<ChildProcess> StartWithout(const std::string& streams,
                                             const std::string& command) const {
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"/bin/sh", "-c", "exec " + command + " " + streams}, Directory());
  }
  // What a descriptor of the process leads to.
  static std::string Behind(const ChildProcess& process, int fd) {
    std::error_code none;
    return std::filesystem::read_symlink(
               "/proc/" + std::to_string(process.pid()) + "/fd/" + std::to_string(fd), none)
        .string();
  }
};

TEST_F(ClosedStreams, TheNodePrintsIntoNothingAndNotIntoItsSocketOrRing) {
  const auto node =
      StartWithout("<&- >&- 2>&-", kNodeProgram + " --cali_path " + CalibrationDirectory());
  ASSERT_TRUE(WaitUntilRunning(*node));
  for (const int fd : {0, 1, 2}) EXPECT_EQ(Behind(*node, fd), "/dev/null") << fd;
  const RingMapping ring;
  ASSERT_TRUE(ring.Exists());
  EXPECT_TRUE(ring.HeaderIsRight());
  EXPECT_EQ(node->Interrupt(), 0);
}

TEST_F(ClosedStreams, AnOpenStreamIsLeftAlone) {
  const auto node = StartWithout(">&-", kNodeProgram + " --cali_path " + CalibrationDirectory());
  ASSERT_TRUE(WaitUntilRunning(*node));
  EXPECT_EQ(Behind(*node, 1), "/dev/null");
  EXPECT_EQ(Behind(*node, 2).substr(0, 5), "pipe:");
  EXPECT_EQ(node->Interrupt(), 0);
}

TEST_F(ClosedStreams, AToolDoesTheSame) {
  const auto view = StartWithout(
      ">&- 2>&-", std::string(KERUL_BINARY_DIR "/tools/lidar_view --udp 23691 --seconds 20"));
  // With its socket open it takes interrupts as well.
  ASSERT_TRUE(WaitUntil([&] { return Behind(*view, 3).starts_with("socket:"); }));
  EXPECT_EQ(Behind(*view, 1), "/dev/null");
  EXPECT_EQ(Behind(*view, 2), "/dev/null");
  EXPECT_EQ(view->Interrupt(), 1);  // no frame came
}

}  // namespace
}  // namespace kerul::lidar::testing
