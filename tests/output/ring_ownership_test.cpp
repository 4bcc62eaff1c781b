#include "output/ring_ownership.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "output/shm_test_name.h"

namespace kerul::lidar {
namespace {

int OpenObject(const ShmTestName& name, int flags) {
  return shm_open(name.c_str(), flags | O_CREAT, 0600);
}

TEST(RingOwnership, AWriterLivesWhileItsDescriptorIsOpen) {
  const ShmTestName name;
  const int writer = OpenObject(name, O_RDWR);
  EXPECT_FALSE(RingWriterLives(name.str())) << "nobody holds the lock yet";
  ASSERT_TRUE(LockAsWriter(writer));
  EXPECT_TRUE(RingWriterLives(name.str()));
  close(writer);
  EXPECT_FALSE(RingWriterLives(name.str()));
}

TEST(RingOwnership, AKilledWriterIsNotAlive) {
  const ShmTestName name;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    const bool locked = LockAsWriter(OpenObject(name, O_RDWR));
    if (write(ready[1], locked ? "1" : "0", 1) == 1) pause();
    _exit(1);
  }
  char locked = 0;
  ASSERT_EQ(read(ready[0], &locked, 1), 1);
  EXPECT_EQ(locked, '1');
  EXPECT_TRUE(RingWriterLives(name.str()));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_FALSE(RingWriterLives(name.str()));
  close(ready[0]);
  close(ready[1]);
}

TEST(RingOwnership, OneWriterAtATime) {
  const ShmTestName name;
  const int first = OpenObject(name, O_RDWR);
  const int second = OpenObject(name, O_RDWR);
  ASSERT_TRUE(LockAsWriter(first));
  EXPECT_FALSE(LockAsWriter(second));
  EXPECT_TRUE(WriterLives(second));
  EXPECT_FALSE(WriterLives(first)) << "the own lock is nobody else's";
  close(first);
  close(second);
}

// A process that may only read must not be able to keep a node from starting.
TEST(RingOwnership, AReadersLockFeignsNoWriter) {
  const ShmTestName name;
  const int reader = OpenObject(name, O_RDONLY);
  EXPECT_FALSE(LockAsWriter(reader));
  struct flock shared {};
  shared.l_type = F_RDLCK;
  ASSERT_EQ(fcntl(reader, F_OFD_SETLK, &shared), 0);
  EXPECT_FALSE(RingWriterLives(name.str()));
  close(reader);
}

TEST(RingOwnership, AMissingObjectAndAFifoHaveNoWriter) {
  const ShmTestName name;
  EXPECT_FALSE(RingWriterLives(name.str()));
  ASSERT_EQ(mkfifo(("/dev/shm" + name.str()).c_str(), 0600), 0);
  EXPECT_FALSE(RingWriterLives(name.str()));  // and does not wait for somebody to write to it
}

}  // namespace
}  // namespace kerul::lidar
