#include "lidar_web/limited_process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace kerul::lidar::web {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using End = ProcessResult::End;

std::string Text(const std::vector<char>& bytes) { return {bytes.begin(), bytes.end()}; }

ProcessResult RunScript(
    const std::string& script, const ProcessLimits& limits = {},
    const std::function<bool()>& wanted = [] { return true; }) {
  return RunLimited({"/bin/sh", "-c", script}, limits, wanted);
}

TEST(LimitedProcess, GivesStatusErrorsAndBothResults) {
  const ProcessResult result = RunScript("echo one >&3; echo two >&4; echo bad >&2; exit 5");
  EXPECT_EQ(result.end, End::kExit);
  EXPECT_EQ(result.status, 5);
  EXPECT_EQ(result.errors, "bad\n");
  EXPECT_EQ(Text(result.results[0]), "one\n");
  EXPECT_EQ(Text(result.results[1]), "two\n");
}

TEST(LimitedProcess, ResultsCanBeWrittenAsFiles) {
  const ProcessResult result =
      RunScript("echo one > " + ResultPath(0) + "; echo two > " + ResultPath(1));
  EXPECT_EQ(Text(result.results[0]), "one\n");
  EXPECT_EQ(Text(result.results[1]), "two\n");
}

TEST(LimitedProcess, WordsAreNoShellsCommands) {
  const ProcessResult result = RunLimited(
      {"/bin/sh", "-c", "echo \"$1\" >&3", "sh", "$(echo x); echo y"}, {}, [] { return true; });
  EXPECT_EQ(Text(result.results[0]), "$(echo x); echo y\n");
}

// Files of the server are its connections.
TEST(LimitedProcess, NoFileOfTheServersIsOpenInIt) {
  const int low = open("/dev/zero", O_RDONLY);
  const int open_file = fcntl(low, F_DUPFD, 50);  // not among the numbers that it gets
  close(low);
  ASSERT_GE(open_file, 50);
  const ProcessResult result = RunScript("ls -l /proc/$$/fd >&3");
  close(open_file);
  EXPECT_THAT(Text(result.results[0]), HasSubstr(" 4 -> pipe:"));
  EXPECT_THAT(Text(result.results[0]), Not(HasSubstr("/dev/zero")));
}

TEST(LimitedProcess, DoesNotStartWithoutDescriptorsForItsResults) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit few = before;
  few.rlim_cur = 90;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const ProcessResult result = RunScript("exit 0");
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(result.end, End::kNotStarted);
}

TEST(LimitedProcess, ReadsNothingAndStandsBehindOthers) {
  // The priority is the 19th word of the file, the name in brackets the second.
  const int zeros = open("/dev/zero", O_RDONLY);
  const int before = fcntl(STDIN_FILENO, F_DUPFD, 50);
  dup2(zeros, STDIN_FILENO);
  const ProcessResult result =
      RunScript("head -c 1 | wc -c >&3; cut -d ' ' -f 19 /proc/$$/stat >&4");
  dup2(before, STDIN_FILENO);
  close(before);
  close(zeros);
  EXPECT_EQ(Text(result.results[0]), "0\n");
  EXPECT_EQ(Text(result.results[1]), "19\n");
}

TEST(LimitedProcess, IsEndedWhenItsTimeIsOver) {
  const auto begin = std::chrono::steady_clock::now();
  const ProcessResult result =
      RunScript("exec sleep 100", {.time = std::chrono::milliseconds(200)});
  EXPECT_EQ(result.end, End::kTooLong);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST(LimitedProcess, IsKilledWhenItDoesNotEnd) {
  const ProcessResult result = RunScript("trap '' TERM; echo $$ >&3; while :; do sleep 0.05; done",
                                         {.time = std::chrono::milliseconds(200)});
  EXPECT_EQ(result.end, End::kTooLong);
}

TEST(LimitedProcess, ClosingItsFilesDoesNotLetItStay) {
  const ProcessResult result = RunScript("exec sleep 100 2>&- 3>&- 4>&-");
  EXPECT_EQ(result.end, End::kTooLong);
}

TEST(LimitedProcess, IsEndedWhenItWritesTooMuch) {
  for (const char* file : {"2", "3", "4"}) {
    const ProcessResult result =
        RunScript(std::string("exec cat /dev/zero >&") + file, {.bytes = 100'000});
    EXPECT_EQ(result.end, End::kTooMuch) << file;
  }
}

TEST(LimitedProcess, IsEndedWhenNobodyWantsItAnyMore) {
  int looks = 0;
  const ProcessResult result = RunScript("exec sleep 100", {}, [&] { return ++looks < 3; });
  EXPECT_EQ(result.end, End::kNotWanted);
  EXPECT_EQ(looks, 3);
}

TEST(LimitedProcess, TellsASignalAndAMissingProgram) {
  const ProcessResult killed = RunScript("kill -SEGV $$");
  EXPECT_EQ(killed.end, End::kSignal);
  EXPECT_EQ(killed.status, SIGSEGV);
  EXPECT_EQ(RunLimited({"/no/such/program"}, {}, [] { return true; }).end, End::kNotStarted);
}

}  // namespace
}  // namespace kerul::lidar::web
