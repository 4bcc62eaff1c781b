// What other processes and a small /dev/shm can do to the node's ring.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_mapping.h"
#include "ring_tap.h"

namespace kerul::lidar::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class RingAccidents : public IsolatedProcessTest {
 protected:
  std::unique_ptr<ChildProcess> StartStream() const {
    return StartSimulator({"--quiet", "--loop", "2", "--rate", "4"});
  }
  static void LimitSharedMemory(const char* size) {
    ASSERT_EQ(mount("tmpfs", "/dev/shm", "tmpfs", MS_REMOUNT, size), 0);
  }
};

// A container has 64 MiB by default.
TEST_F(RingAccidents, TooLittleSharedMemoryEndsTheStartWithTheSizesAndLeavesNothing) {
  LimitSharedMemory("size=64m");
  const auto node = StartNode({"--cali_path", CalibrationDirectory()});
  EXPECT_EQ(node->WaitForExit(), 1);
  EXPECT_EQ(node->Err(),
            "ShmRegion::Open no memory for the region, name=/kerul_lidar_udp_shm errno=28 (No "
            "space left on device) needed=104857600 free=67108864 size=67108864 bytes in "
            "/dev/shm\n[ERROR] failed to start LidarNode: ShmUdpWriter::Open failed: "
            "kerul_lidar_udp_shm\n");
  EXPECT_TRUE(std::filesystem::is_empty("/dev/shm"));
  LimitSharedMemory("size=128m");
  const auto enough = StartCalibratedNode();
  EXPECT_EQ(enough->Interrupt(), 0);
}

TEST_F(RingAccidents, ASecondNodeIsRefusedWhileTheFirstLives) {
  const auto stream = StartStream();
  const auto first = StartCalibratedNode();
  RingTap tap;
  ASSERT_NE(tap.NextComplete(), nullptr);
  const auto second = StartNode({"--cali_path", CalibrationDirectory()});
  EXPECT_EQ(second->WaitForExit(), 1);
  EXPECT_THAT(second->Err(),
              HasSubstr("[ERROR] failed to start LidarNode: the writer of the ring "
                        "/kerul_lidar_udp_shm still lives; stop it first, or set shm_takeover to "
                        "take its place\n"));
  // It has not opened the port: that would have taken the first one's datagrams.
  EXPECT_THAT(second->Out(), Not(HasSubstr("] recv=")));
  ASSERT_NE(tap.NextComplete(), nullptr);
  EXPECT_EQ(tap.Ring().replaced, 0U);
  EXPECT_TRUE(first->WaitFor(Stream::kErr, "[WARN] ring /kerul_lidar_udp_shm: another process (" +
                                               std::to_string(second->pid()) +
                                               ") was to write it as well and was refused\n"))
      << first->Err();
  EXPECT_EQ(first->Interrupt(), 0);
  const auto third = StartCalibratedNode();
  EXPECT_EQ(third->Interrupt(), 0);
}

TEST_F(RingAccidents, AShortenedRingIsMadeAnewWhileTheNodeRuns) {
  const auto stream = StartStream();
  const auto node = StartCalibratedNode();
  ASSERT_NE(RingTap().NextComplete(), nullptr);
  for (const off_t left : {off_t{50'000'000}, off_t{4096}, off_t{0}}) {
    struct stat before {};
    ASSERT_EQ(stat(kRingPath, &before), 0);
    ASSERT_EQ(truncate(kRingPath, left), 0);
    ASSERT_TRUE(node->WaitFor(Stream::kErr, "its object was made shorter, making a new one\n"));
    ASSERT_TRUE(WaitUntil([&] {
      struct stat now {};
      return stat(kRingPath, &now) == 0 && now.st_ino != before.st_ino;
    }));
    RingTap tap;
    ASSERT_NE(tap.NextComplete(), nullptr) << left << node->Err();
    EXPECT_EQ(tap.Ring().lost, 0U);
  }
  EXPECT_EQ(node->Interrupt(), 0);
}

// Two slots would lose every reader almost everything, and no check of a packet alone finds it.
TEST_F(RingAccidents, ARingOfAnotherSoundShapeIsUndoneWithinAFrame) {
  const auto stream = StartStream();
  const auto node = StartCalibratedNode();
  RingTap tap;
  ASSERT_NE(tap.NextComplete(), nullptr);
  RingMapping ring;
  ASSERT_TRUE(ring.Exists());
  ring.Overwrite(12, 2, 1);
  ring.Overwrite(13, 0, 3);
  ASSERT_TRUE(WaitUntil([&] { return ring.HeaderIsRight(); }));
  EXPECT_TRUE(node->WaitFor(Stream::kErr, "something has overwritten its header"));
  ASSERT_NE(tap.NextComplete(), nullptr);
  EXPECT_EQ(node->Interrupt(), 0);
}

TEST_F(RingAccidents, AFifoInTheRingsPlaceHoldsNobody) {
  ASSERT_EQ(mkfifo(kRingPath, 0666), 0);
  const auto view = std::make_unique<ChildProcess>(
      std::vector<std::string>{KERUL_BINARY_DIR "/tools/lidar_view", "--seconds", "0.2"},
      Directory());
  EXPECT_EQ(view->WaitForExit(), 1);
  EXPECT_THAT(view->Err(), HasSubstr("(not a ring)"));
  const auto node = StartCalibratedNode();
  EXPECT_THAT(node->Out(), HasSubstr("removed stale region"));
  EXPECT_EQ(node->Interrupt(), 0);
}

}  // namespace
}  // namespace kerul::lidar::testing
