#include "output/bus_error_guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <vector>

#include "output/shm_test_name.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kBytes = 8 * 4096;

// A shared mapping whose object the test may shorten.
class Mapping {
 public:
  Mapping() : fd_(shm_open(name_.c_str(), O_CREAT | O_RDWR, 0600)) {
    Resize(kBytes);
    bytes_ = static_cast<volatile std::uint8_t*>(
        mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0));
  }
  ~Mapping() {
    munmap(Begin(), kBytes);
    close(fd_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  void Resize(std::size_t bytes) const { ASSERT_EQ(ftruncate(fd_, static_cast<off_t>(bytes)), 0); }
  void* Begin() const { return const_cast<std::uint8_t*>(bytes_); }
  volatile std::uint8_t& operator[](std::size_t at) const { return bytes_[at]; }

 private:
  ShmTestName name_;
  int fd_;
  volatile std::uint8_t* bytes_ = nullptr;
};

// By the signal, or with a sanitizer's report of it.
bool EndsBadly(int status) { return !WIFEXITED(status) || WEXITSTATUS(status) != 0; }

TEST(BusErrorGuard, AWriteIntoPagesThatAreGoneEndsInZeroedPrivateMemory) {
  const Mapping mapping;
  mapping[0] = 1;
  BusErrorGuard guard;
  ASSERT_TRUE(guard.Watch(mapping.Begin(), kBytes));
  mapping.Resize(4096);
  EXPECT_EQ(mapping[0], 1) << "what is left can be read";
  EXPECT_FALSE(guard.PagesLost());
  mapping[5 * 4096] = 7;
  EXPECT_TRUE(guard.PagesLost());
  EXPECT_EQ(mapping[5 * 4096], 7);
  EXPECT_EQ(mapping[0], 0) << "the range is replaced as a whole";
  EXPECT_EQ(mapping[kBytes - 1], 0);
}

TEST(BusErrorGuard, AReadOfPagesThatAreGoneGivesZero) {
  const Mapping mapping;
  mapping[4096] = 3;
  BusErrorGuard guard;
  ASSERT_TRUE(guard.Watch(mapping.Begin(), kBytes));
  mapping.Resize(0);
  EXPECT_EQ(mapping[4096], 0);
  EXPECT_TRUE(guard.PagesLost());
}

TEST(BusErrorGuard, EachGuardKnowsItsOwnRangeOnly) {
  const Mapping first;
  const Mapping second;
  BusErrorGuard first_guard;
  BusErrorGuard second_guard;
  ASSERT_TRUE(first_guard.Watch(first.Begin(), kBytes));
  ASSERT_TRUE(second_guard.Watch(second.Begin(), kBytes));
  second[1] = 9;
  first.Resize(0);
  first[0] = 1;
  EXPECT_TRUE(first_guard.PagesLost());
  EXPECT_FALSE(second_guard.PagesLost());
  EXPECT_EQ(second[1], 9);
}

TEST(BusErrorGuard, WatchingAgainBeginsAnew) {
  const Mapping first;
  const Mapping second;
  BusErrorGuard guard;
  ASSERT_TRUE(guard.Watch(first.Begin(), kBytes));
  first.Resize(0);
  first[0] = 1;
  ASSERT_TRUE(guard.PagesLost());
  ASSERT_TRUE(guard.Watch(second.Begin(), kBytes));
  EXPECT_FALSE(guard.PagesLost());
}

TEST(BusErrorGuard, MoreThanSixtyFourAreRefused) {
  const Mapping mapping;
  std::vector<BusErrorGuard> guards(65);
  int watching = 0;
  for (BusErrorGuard& guard : guards) watching += guard.Watch(mapping.Begin(), kBytes) ? 1 : 0;
  EXPECT_EQ(watching, 64);
}

TEST(BusErrorGuardDeathTest, WithoutAGuardTheProcessEnds) {
  const Mapping mapping;
  mapping.Resize(0);
  BusErrorGuard other;  // the handler stands, but the range is not its
  const Mapping elsewhere;
  ASSERT_TRUE(other.Watch(elsewhere.Begin(), kBytes));
  EXPECT_EXIT(mapping[0] = 1, EndsBadly, "");
}

TEST(BusErrorGuardDeathTest, AReleasedGuardHelpsNoMore) {
  const Mapping mapping;
  BusErrorGuard guard;
  ASSERT_TRUE(guard.Watch(mapping.Begin(), kBytes));
  guard.Release();
  mapping.Resize(0);
  EXPECT_EXIT(mapping[0] = 1, EndsBadly, "");
}

TEST(BusErrorGuardDeathTest, ASentSignalStillEndsTheProcess) {
  const Mapping mapping;
  BusErrorGuard guard;
  ASSERT_TRUE(guard.Watch(mapping.Begin(), kBytes));
  EXPECT_EXIT(
      {
        kill(getpid(), SIGBUS);
        pause();
      },
      EndsBadly, "");
}

// The address in a sent signal is the sender's word.
TEST(BusErrorGuardDeathTest, ASentSignalWithAGuardedAddressEndsTheProcessToo) {
  const Mapping mapping;
  BusErrorGuard guard;
  ASSERT_TRUE(guard.Watch(mapping.Begin(), kBytes));
  siginfo_t info{};
  info.si_signo = SIGBUS;
  info.si_code = SI_QUEUE;
  info.si_addr = mapping.Begin();
  EXPECT_EXIT(
      {
        syscall(SYS_rt_sigqueueinfo, getpid(), SIGBUS, &info);
        _exit(0);
      },
      EndsBadly, "");
}

}  // namespace
}  // namespace kerul::lidar
