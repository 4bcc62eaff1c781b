// What a region is made with, and that a failing call leaves it closed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <iterator>

#include "output/failing_calls.h"
#include "output/shm_region.h"
#include "output/shm_test_name.h"

namespace kerul::lidar {
namespace {

constexpr std::uint32_t kBytes = 8192;

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator{});
}

class ShmRegionCalls : public testing::Test {
 protected:
  std::string Path() const { return "/dev/shm" + name_.str(); }
  struct stat Object() const {
    struct stat status {};
    EXPECT_EQ(stat(Path().c_str(), &status), 0);
    return status;
  }
  mode_t ModeUnder(mode_t mask) {
    const mode_t before = umask(mask);
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(region_.Open(false, true));
    ::testing::internal::GetCapturedStdout();
    umask(before);
    return Object().st_mode & 0777U;
  }
  // Opens while a call fails: the region stays closed and holds no descriptor.
  void ExpectFailedOpen(bool read_only, int error) {
    const std::ptrdiff_t before = OpenDescriptors();
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(region_.Open(read_only, false));
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(region_.OpenError(), error);
    EXPECT_FALSE(region_.IsOpened());
    EXPECT_EQ(region_.Data(), nullptr);
    EXPECT_EQ(region_.AttachToken(), 0U);
    EXPECT_EQ(OpenDescriptors(), before);
  }
  void MakeObject(off_t bytes) const {
    const int fd = shm_open(name_.c_str(), O_CREAT | O_RDWR, 0666);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, bytes), 0);
    close(fd);
  }

  ShmTestName name_;
  ShmRegion region_{name_.c_str(), kBytes};
};

TEST_F(ShmRegionCalls, EveryUserMayReadAndWriteItAsFarAsTheMaskAllows) {
  EXPECT_EQ(ModeUnder(0), 0666U);
  EXPECT_EQ(ModeUnder(0022), 0644U);
}

TEST_F(ShmRegionCalls, TheObjectHasExactlyTheAskedSize) {
  ASSERT_TRUE(region_.Open(false, true));
  EXPECT_EQ(Object().st_size, off_t{kBytes});
  ShmRegion smallest(name_.c_str(), 3036);
  ASSERT_TRUE(smallest.Open(false, false)) << "cuts the longer one it finds";
  EXPECT_EQ(Object().st_size, 3036);
}

TEST_F(ShmRegionCalls, AnObjectOfExactlyTheSmallestSizeCanBeAttached) {
  MakeObject(3036);
  ASSERT_TRUE(region_.Open(true, false));
  EXPECT_EQ(region_.Size(), 3036U);
}

TEST_F(ShmRegionCalls, AnObjectThatCannotBeGivenItsSizeIsNoRegion) {
  {
    FailingCalls failing;
    failing.ftruncate = EFBIG;
    ExpectFailedOpen(false, EFBIG);
  }
  EXPECT_FALSE(std::filesystem::exists(Path()));
  EXPECT_TRUE(region_.Open(false, false)) << "the failure leaves nothing that stands in the way";
}

TEST_F(ShmRegionCalls, AnObjectThatCannotBeMappedIsNoRegion) {
  MakeObject(kBytes);
  {
    FailingCalls failing;
    failing.mmap = ENOMEM;
    ExpectFailedOpen(true, ENOMEM);
    ExpectFailedOpen(false, ENOMEM);
  }
  EXPECT_TRUE(region_.Open(true, false));
}

TEST_F(ShmRegionCalls, AnObjectThatCannotBeLookedAtIsNotAttached) {
  MakeObject(kBytes);
  {
    FailingCalls failing;
    failing.fstat = EIO;
    ExpectFailedOpen(true, EIO);
    ExpectFailedOpen(false, EIO);
  }
  EXPECT_TRUE(region_.Open(true, false));
}

TEST_F(ShmRegionCalls, AnObjectMadeInVainIsGone) {
  for (int FailingCalls::*call :
       {&FailingCalls::ftruncate, &FailingCalls::fstat, &FailingCalls::mmap}) {
    FailingCalls failing;
    failing.*call = ENOMEM;
    ExpectFailedOpen(false, ENOMEM);
    EXPECT_FALSE(std::filesystem::exists(Path()));
  }
}

TEST_F(ShmRegionCalls, AnOpenObjectThatCannotBeLookedAtHasNoTokenAndCountsAsReplaced) {
  ASSERT_TRUE(region_.Open(false, true));
  const std::uint64_t token = region_.AttachToken();
  ASSERT_NE(token, 0U);
  FailingCalls failing;
  failing.fstat = EIO;
  EXPECT_EQ(region_.AttachToken(), 0U);
  EXPECT_TRUE(region_.NamedObjectReplaced(token));
  EXPECT_FALSE(region_.NamedObjectReplaced(0)) << "no token tells nothing";
}

TEST_F(ShmRegionCalls, MakingItAnewClosesWhatWasOpen) {
  ASSERT_TRUE(region_.Open(false, true));
  const std::ptrdiff_t before = OpenDescriptors();
  ::testing::internal::CaptureStdout();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(region_.Open(false, true));
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(OpenDescriptors(), before);
}

// A region that is open must not stay so when its successor cannot be made.
TEST_F(ShmRegionCalls, WhatWasOpenIsClosedThoughItsSuccessorFails) {
  ASSERT_TRUE(region_.Open(false, true));
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  ASSERT_EQ(mkdir(Path().c_str(), 0700), 0);  // a directory cannot be unlinked
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(region_.Open(false, true));
  ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(region_.IsOpened());
  EXPECT_EQ(region_.AttachToken(), 0U);
  EXPECT_EQ(rmdir(Path().c_str()), 0);
}

}  // namespace
}  // namespace kerul::lidar
