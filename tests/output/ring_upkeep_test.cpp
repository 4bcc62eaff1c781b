// What a writer finds and repairs at the end of a frame.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>

#include "output/ring_ownership.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"

namespace kerul::lidar {
namespace {

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

constexpr std::uint32_t kSlots = 8;
constexpr std::uint32_t kRingBytes = 20 + kSlots * 1508;

class RingUpkeep : public testing::Test {
 protected:
  void SetUp() override { Open(writer_); }

  static void Open(ShmUdpWriter& writer) {
    CaptureStdout();
    const bool opened = writer.Open();
    GetCapturedStdout();
    ASSERT_TRUE(opened);
  }
  // What the upkeep says on standard error.
  static std::string TendIt(ShmUdpWriter& writer) {
    CaptureStdout();
    CaptureStderr();
    writer.Tend();
    GetCapturedStdout();
    return GetCapturedStderr();
  }
  std::string Tend() { return TendIt(writer_); }
  bool Write() {
    const std::uint8_t bytes[4] = {1, 2, 3, 4};
    return writer_.WriteOne(bytes, 4);
  }
  std::uint32_t Word(std::size_t at) {
    std::uint32_t word = 0;
    std::memcpy(&word, writer_.Data() + at, 4);
    return word;
  }
  // Inode of the object that the name leads to, 0 for none.
  ino_t Named() const {
    struct stat status {};
    return lstat(Path().c_str(), &status) == 0 ? status.st_ino : 0;
  }
  bool NameIsOurs() { return Named() != 0 && !writer_.NamedObjectReplaced(writer_.AttachToken()); }
  std::string Path() const { return "/dev/shm" + name_.str(); }
  void Resize(off_t bytes) { ASSERT_EQ(truncate(Path().c_str(), bytes), 0); }
  static void WaitUntilARingMayBeMade() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1010));
  }

  ShmTestName name_;
  ShmUdpWriter writer_{name_.c_str(), kRingBytes};
};

TEST_F(RingUpkeep, ASoundRingIsLeftAloneInSilence) {
  ASSERT_TRUE(Write());
  const ino_t object = Named();
  EXPECT_EQ(Tend(), "");
  EXPECT_EQ(Named(), object);
  EXPECT_EQ(writer_.Seq(), 1U);
}

TEST_F(RingUpkeep, ARemovedObjectIsMadeAnew) {
  ASSERT_TRUE(Write());
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  EXPECT_EQ(Tend(), "[WARN] ring " + name_.str() + ": its object was removed, making a new one\n");
  EXPECT_TRUE(NameIsOurs());
  EXPECT_EQ(writer_.Seq(), 0U) << "the numbers of a fresh ring";
  EXPECT_EQ(Word(12), kSlots);
  EXPECT_EQ(Tend(), "");
}

TEST_F(RingUpkeep, AnObjectThatNobodyWritesIsReplacedAgain) {
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  close(shm_open(name_.c_str(), O_CREAT | O_RDWR, 0600));
  EXPECT_THAT(Tend(), HasSubstr("its object was replaced, making a new one"));
  EXPECT_TRUE(NameIsOurs());
}

TEST_F(RingUpkeep, AFifoOrALinkOfTheNameIsReplacedWithoutWaiting) {
  for (const bool link : {false, true}) {
    if (link) WaitUntilARingMayBeMade();
    ASSERT_EQ(shm_unlink(name_.c_str()), 0);
    ASSERT_EQ(link ? symlink("/dev/null", Path().c_str()) : mkfifo(Path().c_str(), 0600), 0);
    EXPECT_THAT(Tend(), HasSubstr("its object was replaced, making a new one"));
    EXPECT_TRUE(NameIsOurs());
  }
}

TEST_F(RingUpkeep, ARingIsMadeOnceASecondAtMost) {
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  EXPECT_NE(Tend(), "");
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  EXPECT_EQ(Tend(), "");
  EXPECT_EQ(Named(), 0U);
  EXPECT_TRUE(Write()) << "those who hold the old object are served meanwhile";
  WaitUntilARingMayBeMade();
  EXPECT_NE(Tend(), "");
  EXPECT_TRUE(NameIsOurs());
}

TEST_F(RingUpkeep, BothWritersTellATakeoverAndTheFirstLeavesTheNameToTheSecond) {
  ShmUdpWriter second(name_.c_str(), kRingBytes);
  CaptureStderr();
  Open(second);
  EXPECT_EQ(GetCapturedStderr(),
            "[WARN] ring " + name_.str() + ": taken over from a writer that still lives\n");
  const ino_t object = Named();
  EXPECT_EQ(Tend(), "[WARN] ring " + name_.str() +
                        ": another writer that still lives has taken the name over: what is "
                        "written here reaches no new reader\n");
  EXPECT_EQ(Tend(), "") << "told once";
  EXPECT_TRUE(Write());
  EXPECT_EQ(Named(), object);
  EXPECT_EQ(TendIt(second), "");
  second.Close();
  EXPECT_THAT(Tend(), HasSubstr("its object was replaced, making a new one"));
  EXPECT_TRUE(NameIsOurs()) << "the one that is left serves the readers again";
}

void WaitUntilTheWriterLooksAgain() { std::this_thread::sleep_for(kRefusalLookPause * 1.1); }

// In a process of its own, as the lock that shows it belongs to its process.
pid_t StartRefusal(const std::string& name) {
  const pid_t child = fork();
  if (child == 0) {
    ShowRefusal(name, std::chrono::minutes(1));
    _exit(1);
  }
  return child;
}

TEST_F(RingUpkeep, ARefusedSecondWriterIsToldOnceWithItsNumber) {
  for (int round = 0; round < 2; ++round) {
    const pid_t refused = StartRefusal(name_.str());
    std::string told;
    while (told.empty() && waitpid(refused, nullptr, WNOHANG) == 0) told = Tend();
    EXPECT_EQ(told, "[WARN] ring " + name_.str() + ": another process (" + std::to_string(refused) +
                        ") was to write it as well and was refused\n");
    WaitUntilTheWriterLooksAgain();
    EXPECT_EQ(Tend(), "") << "while it still shows itself";
    EXPECT_TRUE(RingWriterLives(name_.str())) << "it takes nothing of the writer's own lock";
    kill(refused, SIGKILL);
    waitpid(refused, nullptr, 0);
    WaitUntilTheWriterLooksAgain();
    EXPECT_EQ(Tend(), "");
  }
}

TEST_F(RingUpkeep, ARefusalByARingThatIsNotThereDoesNotWait) {
  ShowRefusal("/kerul_test_no_such_ring", std::chrono::hours(1));
  EXPECT_EQ(Tend(), "");
}

TEST_F(RingUpkeep, OpeningAgainTakesNothingOverFromItself) {
  CaptureStderr();
  Open(writer_);
  EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(RingUpkeep, AShortenedObjectIsMadeAnewAlthoughNothingOfItWasTouched) {
  Resize(4096);
  EXPECT_EQ(Tend(),
            "[WARN] ring " + name_.str() + ": its object was made shorter, making a new one\n");
  EXPECT_TRUE(NameIsOurs());
  EXPECT_TRUE(Write());
}

TEST_F(RingUpkeep, AWriteIntoPagesThatAreGoneLosesItsPacketOnly) {
  Resize(4096);  // slots 0 to 2 begin in what is left
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Write());
  EXPECT_TRUE(Write()) << "into private memory: header and slot are zero only after this one";
  CaptureStdout();
  CaptureStderr();
  EXPECT_FALSE(Write()) << "has found the header empty";
  GetCapturedStdout();
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("its object was made shorter, making a new one"));
  EXPECT_EQ(writer_.WriteErrors(), 1U);
  EXPECT_TRUE(Write());
  EXPECT_TRUE(NameIsOurs());
  EXPECT_EQ(Word(4), 1U) << "packet 1 of the fresh ring";
}

TEST_F(RingUpkeep, AnotherSoundShapeIsUndoneByTheNextPacketAndTold) {
  ASSERT_TRUE(Write());
  const std::uint32_t two_slots = 2;
  std::memcpy(writer_.Data() + 12, &two_slots, 4);
  EXPECT_EQ(Tend(), "");
  EXPECT_EQ(Word(4), 1U) << "no empty ring is shown meanwhile";
  ASSERT_TRUE(Write());
  EXPECT_EQ(Word(12), kSlots);
  EXPECT_EQ(Word(4), 2U) << "the count goes on";
  EXPECT_EQ(Tend(), "[WARN] ring " + name_.str() +
                        ": something has overwritten its header, it was rebuilt; repairs so far: "
                        "1\n");
  EXPECT_EQ(Tend(), "");
}

TEST_F(RingUpkeep, ARingThatCouldNotBeMadeIsTriedAgain) {
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  ASSERT_EQ(mkdir(Path().c_str(), 0700), 0);  // cannot be unlinked
  EXPECT_THAT(Tend(), HasSubstr("shm_unlink failed"));
  EXPECT_FALSE(writer_.IsOpened());
  ASSERT_EQ(rmdir(Path().c_str()), 0);
  EXPECT_EQ(Tend(), "");
  WaitUntilARingMayBeMade();
  EXPECT_THAT(Tend(), HasSubstr("it could not be made, making a new one"));
  EXPECT_TRUE(NameIsOurs());
}

TEST_F(RingUpkeep, AClosedWriterMakesNoRing) {
  writer_.Close();
  ASSERT_EQ(shm_unlink(name_.c_str()), 0);
  EXPECT_EQ(Tend(), "");
  EXPECT_EQ(Named(), 0U);
}

}  // namespace
}  // namespace kerul::lidar
