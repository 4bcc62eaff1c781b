#include "output/shm_region.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "output/shm_test_name.h"

namespace kerul::lidar {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

constexpr std::uint32_t kBytes = 8192;

// Makes an object of `bytes` bytes by hand.
void MakeObject(const ShmTestName& name, off_t bytes) {
  const int fd = shm_open(name.c_str(), O_CREAT | O_RDWR, 0666);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, bytes), 0);
  close(fd);
}

TEST(ShmRegionName, AnEmptyOrNullNameIsTheDefault) {
  EXPECT_EQ(ShmRegion::NormalizeName(nullptr), "/kerul_lidar_udp_shm");
  EXPECT_EQ(ShmRegion::NormalizeName(""), "/kerul_lidar_udp_shm");
}

TEST(ShmRegionName, ALeadingSlashIsPutWhereItIsMissing) {
  EXPECT_EQ(ShmRegion::NormalizeName("ring"), "/ring");
  EXPECT_EQ(ShmRegion::NormalizeName("/ring"), "/ring");
  EXPECT_EQ(ShmRegion::NormalizeName("//ring"), "//ring");
}

TEST(ShmRegion, AFreshOneIsClosed) {
  const ShmTestName name;
  const ShmRegion region(name.c_str(), kBytes);
  EXPECT_FALSE(region.IsOpened());
  EXPECT_EQ(region.Data(), nullptr);
  EXPECT_EQ(region.Size(), kBytes);
  EXPECT_EQ(region.AttachToken(), 0U);
}

TEST(ShmRegion, TheSmallestSizeIsThatOfTwoSlots) {
  const ShmTestName name;
  ShmRegion small(name.c_str(), 3035);
  EXPECT_FALSE(small.Open(false, true));
  EXPECT_FALSE(small.IsOpened());
  ShmRegion enough(name.c_str(), 3036);
  EXPECT_TRUE(enough.Open(false, true));
  EXPECT_TRUE(enough.IsOpened());
}

TEST(ShmRegion, AFirstStartPrintsNothing) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  CaptureStdout();
  CaptureStderr();
  EXPECT_TRUE(region.Open(false, true));
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST(ShmRegion, AStaleObjectIsRemovedAndNamed) {
  const ShmTestName name;
  MakeObject(name, 100);
  ShmRegion region(name.c_str(), kBytes);
  CaptureStdout();
  EXPECT_TRUE(region.Open(false, true));
  EXPECT_EQ(GetCapturedStdout(), "ShmRegion::Open removed stale region, name=" + name.str() +
                                     " (dev path: /dev/shm" + name.str() + ")\n");
}

TEST(ShmRegion, AFailedUnlinkIsReportedAndNothingOpens) {
  const ShmTestName name;
  const std::string path = "/dev/shm" + name.str();
  ASSERT_EQ(mkdir(path.c_str(), 0700), 0);  // a directory cannot be unlinked
  ShmRegion region(name.c_str(), kBytes);
  CaptureStderr();
  EXPECT_FALSE(region.Open(false, true));
  EXPECT_EQ(GetCapturedStderr(), "ShmRegion::Open shm_unlink failed, name=" + name.str() +
                                     " errno=" + std::to_string(EISDIR) + " (" +
                                     std::strerror(EISDIR) + ")\n");
  EXPECT_FALSE(region.IsOpened());
  rmdir(path.c_str());
}

TEST(ShmRegion, ANameThatCannotBeMadeFailsInSilenceWithoutRecreate) {
  const std::string name = "/" + std::string(300, 'x');
  ShmRegion region(name.c_str(), kBytes);
  CaptureStderr();
  EXPECT_FALSE(region.Open(false, false));
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(region.AttachToken(), 0U);
}

TEST(ShmRegion, CreatingWithoutRecreateKeepsTheOldObjectAndItsBytes) {
  const ShmTestName name;
  ShmRegion first(name.c_str(), kBytes);
  ASSERT_TRUE(first.Open(false, false));
  first.Data()[100] = 42;
  ShmRegion second(name.c_str(), kBytes);
  CaptureStdout();
  ASSERT_TRUE(second.Open(false, false));
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(second.Data()[100], 42);
  EXPECT_EQ(second.AttachToken(), first.AttachToken());
}

TEST(ShmRegion, OpeningAnOpenOneWithoutRecreateChangesNothing) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  ASSERT_TRUE(region.Open(false, true));
  const std::uint64_t token = region.AttachToken();
  const std::uint8_t* data = region.Data();
  EXPECT_TRUE(region.Open(true, false));
  EXPECT_EQ(region.Data(), data);
  EXPECT_EQ(region.AttachToken(), token);
}

TEST(ShmRegion, OpeningAnOpenOneWithRecreateMakesANewObject) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  ASSERT_TRUE(region.Open(false, true));
  const std::uint64_t token = region.AttachToken();
  region.Data()[0] = 1;
  CaptureStdout();
  ASSERT_TRUE(region.Open(false, true));
  EXPECT_NE(GetCapturedStdout().find("removed stale region"), std::string::npos);
  EXPECT_EQ(region.Data()[0], 0);
  EXPECT_TRUE(region.NamedObjectReplaced(token));
  EXPECT_FALSE(region.NamedObjectReplaced(region.AttachToken()));
}

TEST(ShmRegion, AttachingNeedsAnObject) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  EXPECT_FALSE(region.Open(true, false));
  EXPECT_FALSE(region.IsOpened());
}

TEST(ShmRegion, AttachingIgnoresRecreate) {
  const ShmTestName name;
  ShmRegion writer(name.c_str(), kBytes);
  ASSERT_TRUE(writer.Open(false, true));
  writer.Data()[7] = 9;
  ShmRegion reader(name.c_str(), kBytes);
  ASSERT_TRUE(reader.Open(true, true));
  EXPECT_EQ(reader.Data()[7], 9);
  EXPECT_EQ(reader.AttachToken(), writer.AttachToken());
}

TEST(ShmRegion, AttachingRefusesAnObjectBelowTheSmallestSize) {
  const ShmTestName name;
  MakeObject(name, 3035);
  ShmRegion region(name.c_str(), kBytes);
  EXPECT_FALSE(region.Open(true, false));
  EXPECT_EQ(region.Size(), kBytes);
  EXPECT_EQ(region.AttachToken(), 0U);
}

TEST(ShmRegion, AttachingLowersTheSizeToTheObjects) {
  const ShmTestName name;
  MakeObject(name, 4000);
  ShmRegion region(name.c_str(), kBytes);
  ASSERT_TRUE(region.Open(true, false));
  EXPECT_EQ(region.Size(), 4000U);
}

TEST(ShmRegion, AttachingToALargerObjectMapsTheAskedSize) {
  const ShmTestName name;
  MakeObject(name, 4 * kBytes);
  ShmRegion region(name.c_str(), kBytes);
  ASSERT_TRUE(region.Open(true, false));
  EXPECT_EQ(region.Size(), kBytes);
}

TEST(ShmRegion, AReaderSeesWhatTheWriterStoresLater) {
  const ShmTestName name;
  ShmRegion writer(name.c_str(), kBytes);
  ASSERT_TRUE(writer.Open(false, true));
  ShmRegion reader(name.c_str(), kBytes);
  ASSERT_TRUE(reader.Open(true, false));
  writer.Data()[kBytes - 1] = 77;
  EXPECT_EQ(reader.Data()[kBytes - 1], 77);
}

TEST(ShmRegion, ClosingKeepsTheObject) {
  const ShmTestName name;
  {
    ShmRegion region(name.c_str(), kBytes);
    ASSERT_TRUE(region.Open(false, true));
    region.Data()[50] = 5;
    region.Close();
    EXPECT_FALSE(region.IsOpened());
    EXPECT_EQ(region.Data(), nullptr);
    EXPECT_EQ(region.AttachToken(), 0U);
    region.Close();  // twice does no harm
  }
  ShmRegion again(name.c_str(), kBytes);
  ASSERT_TRUE(again.Open(true, false));
  EXPECT_EQ(again.Data()[50], 5);
}

TEST(ShmRegion, TheTokenIsDeviceAndInode) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  ASSERT_TRUE(region.Open(false, true));
  struct stat status {};
  ASSERT_EQ(stat(("/dev/shm" + name.str()).c_str(), &status), 0);
  EXPECT_EQ(region.AttachToken(), (std::uint64_t{status.st_dev} << 32) | status.st_ino);
}

TEST(ShmRegion, AReplacedObjectIsNoticedByName) {
  const ShmTestName name;
  ShmRegion writer(name.c_str(), kBytes);
  ASSERT_TRUE(writer.Open(false, true));
  ShmRegion reader(name.c_str(), kBytes);
  ASSERT_TRUE(reader.Open(true, false));
  const std::uint64_t token = reader.AttachToken();
  EXPECT_FALSE(reader.NamedObjectReplaced(token));
  ASSERT_TRUE(writer.Open(false, true));
  EXPECT_TRUE(reader.NamedObjectReplaced(token));
  EXPECT_FALSE(reader.NamedObjectReplaced(0)) << "no token tells nothing";
}

TEST(ShmRegion, AMissingObjectIsNotCalledReplaced) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  ASSERT_TRUE(region.Open(false, true));
  const std::uint64_t token = region.AttachToken();
  shm_unlink(name.c_str());
  EXPECT_FALSE(region.NamedObjectReplaced(token));
}

// Without a writer at its other end, opening a FIFO to read it would wait for ever.
TEST(ShmRegion, AFifoOfTheNameIsNoRegion) {
  const ShmTestName name;
  ASSERT_EQ(mkfifo(("/dev/shm" + name.str()).c_str(), 0600), 0);
  ShmRegion reader(name.c_str(), kBytes);
  EXPECT_FALSE(reader.Open(true, false));
  EXPECT_EQ(reader.OpenError(), EINVAL);
  CaptureStderr();
  EXPECT_FALSE(reader.Open(false, false));
  EXPECT_EQ(GetCapturedStderr(), "") << "it lacks no memory";
  EXPECT_EQ(reader.OpenError(), EINVAL);
  EXPECT_TRUE(reader.NamedObjectReplaced(1));
  CaptureStdout();
  EXPECT_TRUE(reader.Open(false, true)) << "a writer removes it as it does any stale object";
  EXPECT_NE(GetCapturedStdout().find("removed stale region"), std::string::npos);
}

TEST(ShmRegion, TheReasonOfAFailedOpenIsKept) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), kBytes);
  EXPECT_EQ(region.OpenError(), 0);
  EXPECT_FALSE(region.Open(true, false));
  EXPECT_EQ(region.OpenError(), ENOENT);
  MakeObject(name, 3035);
  EXPECT_FALSE(region.Open(true, false));
  EXPECT_EQ(region.OpenError(), EINVAL);
  MakeObject(name, 4000);
  EXPECT_TRUE(region.Open(true, false));
  EXPECT_EQ(region.OpenError(), 0);
}

// Or the first touch of a page that does not exist would end the writer.
TEST(ShmRegion, AWritersMemoryIsClaimedWhenItOpens) {
  const ShmTestName name;
  ShmRegion region(name.c_str(), 64 * 4096);
  ASSERT_TRUE(region.Open(false, true));
  struct stat status {};
  ASSERT_EQ(stat(("/dev/shm" + name.str()).c_str(), &status), 0);
  EXPECT_EQ(status.st_blocks * 512, 64 * 4096);
}

}  // namespace
}  // namespace kerul::lidar
