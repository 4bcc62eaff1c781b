// The program as it is killed, stopped, asked and left without room.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>

#include "support/child_process.h"
#include "support/temp_dir.h"
#include "tools/lidar_record/frame_ring.h"
#include "tools/lidar_record/survey_of_file.h"

namespace kerul::lidar::record {
namespace {

using testing::ChildProcess;
using ::testing::HasSubstr;
using testing::Stream;

const std::string kProgram = KERUL_BINARY_DIR "/tools/lidar_record";

class RecordProcess : public ::testing::Test {
 protected:
  std::unique_ptr<ChildProcess> Start(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command{kProgram, "--shm", ring_.Name()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return std::make_unique<ChildProcess>(command, folder_.path());
  }
  // By the shell, with the program as $0 and its arguments after it.
  std::unique_ptr<ChildProcess> StartShell(const std::string& script,
                                           const std::vector<std::string>& before = {}) const {
    std::vector<std::string> command = before;
    command.insert(command.end(), {"bash", "-c", script, kProgram, "--shm", ring_.Name()});
    return std::make_unique<ChildProcess>(command, folder_.path());
  }
  std::string File(const std::string& name) const { return folder_.File(name); }

  testing::TempDir folder_;
  FrameRing ring_;
  RingFeeder feeder_{ring_};
};

TEST_F(RecordProcess, AStopBySignalFinishesTheFile) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const std::string name = "s" + std::to_string(signal) + ".mcap";
    const auto recorder = Start({"--out", name});
    ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "  file " + name)) << recorder->Err();
    recorder->Signal(signal);
    EXPECT_EQ(recorder->WaitForExit(), 0) << recorder->Err();
    const mcap::Survey survey = SurveyOf(File(name));
    EXPECT_TRUE(survey.finished);
    EXPECT_GT(survey.messages, 0U);
    EXPECT_THAT(recorder->Out(), HasSubstr("\n" + std::to_string(survey.messages) + " frames, "));
  }
}

TEST_F(RecordProcess, AKillLeavesWholeChunksAndTheNextStartTellsHowMany) {
  {
    const auto recorder = Start({"--out", "a.mcap"});
    ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "  file a.mcap")) << recorder->Err();
    recorder->Signal(SIGKILL);
    EXPECT_EQ(recorder->WaitForExit(), 128 + SIGKILL);
  }
  const mcap::Survey survey = SurveyOf(File("a.mcap"));
  EXPECT_FALSE(survey.finished);
  EXPECT_TRUE(survey.damages.empty());
  EXPECT_GT(survey.sound_chunks, 0U);
  EXPECT_EQ(survey.messages, survey.sound_chunks);
  const auto next = Start({"--out", "a.mcap", "--frames", "2", "--seconds", "60"});
  EXPECT_EQ(next->WaitForExit(), 0);
  EXPECT_EQ(next->Err(), "lidar_record: a.mcap was not finished: " +
                             std::to_string(survey.sound_chunks) + " whole chunks\n");
  EXPECT_EQ(SurveyOf(File("a_0001.mcap")).messages, 2U);
}

// 8 MiB hold four frames of 1.99 MB and the index.
TEST_F(RecordProcess, AFileThatMayNotGrowKeepsItsWholeChunksAndItsIndex) {
  const auto recorder =
      StartShell("ulimit -f 8192; exec \"$0\" \"$@\" --out a.mcap --compression none");
  EXPECT_EQ(recorder->WaitForExit(), 1);
  EXPECT_EQ(recorder->Err(),
            "lidar_record: cannot write a.mcap: File too large; it keeps 4 whole chunks\n");
  const mcap::Survey survey = SurveyOf(File("a.mcap"));
  EXPECT_TRUE(survey.finished);
  EXPECT_TRUE(survey.damages.empty());
  EXPECT_EQ(survey.messages, 4U);
}

TEST_F(RecordProcess, AFullDiskKeepsItsWholeChunksAndTheReasonIsTold) {
  std::filesystem::create_directory(File("disk"));
  const auto recorder = StartShell(
      "mount -t tmpfs -o size=5m tmpfs disk || exit 77; "
      "\"$0\" \"$@\" --out disk/a.mcap --compression none; echo \"ended with $?\"; "
      "\"$0\" info disk/a.mcap",
      {"unshare", "--map-root-user", "--mount"});
  ASSERT_TRUE(recorder->WaitForExit().has_value());
  if (recorder->Out().empty()) GTEST_SKIP() << "no mount is permitted: " << recorder->Err();
  EXPECT_THAT(recorder->Err(), HasSubstr("cannot write disk/a.mcap: No space left on device; it "
                                         "keeps 2 whole chunks\n"));
  EXPECT_THAT(recorder->Out(), HasSubstr("ended with 1\n"));
  EXPECT_THAT(recorder->Out(), HasSubstr("finished: yes\n"));
  EXPECT_THAT(recorder->Out(), HasSubstr("messages: 2\n"));
  EXPECT_THAT(recorder->Out(), HasSubstr("damaged chunks: 0\n"));
}

TEST_F(RecordProcess, EachSignalWritesWhatIsKept) {
  const auto recorder = Start({"--out", "a.mcap", "--on-signal", "30"});
  ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "  kept ")) << recorder->Err();
  recorder->Signal(SIGUSR1);
  ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "wrote a.mcap: ")) << recorder->Err();
  const mcap::Survey first = SurveyOf(File("a.mcap"));
  EXPECT_TRUE(first.finished);
  EXPECT_GT(first.messages, 0U);
  ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "  kept ")) << recorder->Err();
  recorder->Signal(SIGUSR1);
  ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "wrote a_0001.mcap: ")) << recorder->Err();
  EXPECT_EQ(recorder->Interrupt(), 0) << recorder->Err();
  const mcap::Survey second = SurveyOf(File("a_0001.mcap"));
  EXPECT_TRUE(second.finished);
  EXPECT_GT(second.messages, first.messages);
  EXPECT_EQ(second.start_time_ns, first.start_time_ns) << "all of it is still kept";
  EXPECT_EQ(recorder->Err(), "");
}

TEST_F(RecordProcess, ARequestThatCannotBeServedIsToldAndTheNextOneIs) {
  const auto recorder = Start({"--out", "later/a.mcap", "--on-signal", "30"});
  ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "  kept ")) << recorder->Err();
  recorder->Signal(SIGUSR1);
  ASSERT_TRUE(recorder->WaitFor(Stream::kErr, "cannot write later/a.mcap: ")) << recorder->Out();
  std::filesystem::create_directory(File("later"));
  recorder->Signal(SIGUSR1);
  ASSERT_TRUE(recorder->WaitFor(Stream::kOut, "wrote later/a.mcap: ")) << recorder->Err();
  EXPECT_EQ(recorder->Interrupt(), 1) << "it had a failure";
}

}  // namespace
}  // namespace kerul::lidar::record
