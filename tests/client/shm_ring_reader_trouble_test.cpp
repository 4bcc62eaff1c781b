// Rings that cannot be read, and one that is made shorter while it is read.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "client/ring_reading.h"
#include "output/shm_test_name.h"

namespace kerul::lidar {
namespace {

TEST(ShmRingReaderAttaching, TheProblemHasAName) {
  const ShmTestName name;
  ShmRingReader reader(name.c_str());
  EXPECT_EQ(reader.AttachProblem(), "") << "untried";
  const auto problem_now = [&] {
    std::this_thread::sleep_for(kLookInterval);
    ReceivedPacket packet;
    reader.TryNext(packet);
    return reader.AttachProblem();
  };
  EXPECT_EQ(problem_now(), "not there");
  const std::string path = "/dev/shm" + name.str();
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  EXPECT_EQ(problem_now(), "not a ring");
  shm_unlink(name.c_str());
  ShmUdpWriter writer(name.c_str(), 20 + 4 * 1508);
  ASSERT_TRUE(writer.Open());
  writer.Data()[0] = 0;
  EXPECT_EQ(problem_now(), "not a ring");
  writer.Data()[0] = 0x53;
  EXPECT_EQ(problem_now(), "");
  EXPECT_TRUE(reader.IsAttached());
}

TEST(ShmRingReaderAttaching, ARingWithoutPermissionIsNotCalledMissing) {
  const ShmTestName name;
  ShmUdpWriter writer(name.c_str(), 20 + 4 * 1508);
  ASSERT_TRUE(writer.Open());
  ASSERT_EQ(chmod(("/dev/shm" + name.str()).c_str(), 0), 0);
  // Root may read everything: ask as a user who may not.
  const bool was_root = geteuid() == 0;
  ASSERT_EQ(seteuid(was_root ? 65534 : geteuid()), 0);
  ShmRingReader reader(name.c_str());
  ReceivedPacket packet;
  EXPECT_FALSE(reader.TryNext(packet));
  EXPECT_EQ(reader.AttachProblem(), "no permission");
  ASSERT_EQ(seteuid(was_root ? 0 : geteuid()), 0);
}

TEST(ShmRingReaderShortened, AReaderThatAskedForItGoesOnWithTheNextRing) {
  RingByHand ring(64);
  ShmRingReader reader = AttachedReader(ring);
  reader.SurviveShortening();
  ring.PutPackets(1, 3);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2, 3}));
  const std::string path = std::string("/dev/shm") + ring.Name();
  ASSERT_EQ(truncate(path.c_str(), 0), 0);
  EXPECT_EQ(TakeAll(reader), Numbers{});
  EXPECT_EQ(reader.Statistics().shortened, 1U);
  EXPECT_FALSE(reader.IsAttached());
  ring.Recreate();
  ring.PutPackets(1, 2);
  std::this_thread::sleep_for(kLookInterval);
  EXPECT_EQ(TakeAll(reader), (Numbers{1, 2}));
  EXPECT_EQ(reader.Statistics().lost, 0U);
}

// The header is still there, the slots are not.
TEST(ShmRingReaderShortened, APacketInPagesThatAreGoneIsLost) {
  RingByHand ring(64);
  ShmRingReader reader(ring.Name(), RingStart::kOldest);
  reader.SurviveShortening();
  ring.PutPackets(1, 40);
  ReceivedPacket packet;
  ASSERT_TRUE(reader.TryNext(packet));
  const std::string path = std::string("/dev/shm") + ring.Name();
  ASSERT_EQ(truncate(path.c_str(), 4096), 0);
  int taken = 0;
  while (reader.TryNext(packet)) ++taken;
  EXPECT_EQ(taken, 2) << "packet 4 begins after the page that is left";
  EXPECT_EQ(reader.Statistics().shortened, 1U);
  EXPECT_EQ(reader.Statistics().torn, 0U);
}

}  // namespace
}  // namespace kerul::lidar
