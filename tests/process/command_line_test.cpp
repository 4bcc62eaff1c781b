#include "command_line.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace kerul::lidar {
namespace {

const std::string kUsage =
    "Usage: ./lidar_node [--cali_path <dir>] [--help]\n"
    "  (default)              load para2 via RCX (head once; cache if ready)\n"
    "  --cali_path <dir>      skip RCX; load from e.g. data/QNDR_003\n"
    "                         (expects <dir>/para_read/<id>_head.bin + <id>_para2.bin)\n";

struct Outcome {
  CommandLine line;
  std::string out;
  std::string err;
};

Outcome Parse(std::initializer_list<const char*> arguments) {
  std::vector<const char*> argv{"./lidar_node"};
  argv.insert(argv.end(), arguments);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Outcome outcome;
  outcome.line = ParseCommandLine(static_cast<int>(argv.size()), argv.data());
  outcome.err = testing::internal::GetCapturedStderr();
  outcome.out = testing::internal::GetCapturedStdout();
  return outcome;
}

void ExpectStart(const Outcome& outcome, const std::string& cali_path) {
  EXPECT_FALSE(outcome.line.exit_status.has_value());
  EXPECT_EQ(outcome.line.cali_path, cali_path);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "");
}

void ExpectEnd(const Outcome& outcome, int exit_status, const std::string& message) {
  ASSERT_TRUE(outcome.line.exit_status.has_value());
  EXPECT_EQ(*outcome.line.exit_status, exit_status);
  EXPECT_EQ(outcome.err, message + kUsage);
  EXPECT_EQ(outcome.out, "");
}

TEST(CommandLine, NoArgumentsStartWithoutACalibrationPath) { ExpectStart(Parse({}), ""); }

TEST(CommandLine, AnEmptyArgumentVectorStartsToo) {
  const char* const argv[] = {nullptr};
  const CommandLine line = ParseCommandLine(0, argv);
  EXPECT_FALSE(line.exit_status.has_value());
  EXPECT_EQ(line.cali_path, "");
}

TEST(CommandLine, CaliPathTakesTheNextArgument) {
  ExpectStart(Parse({"--cali_path", "data/QNDR_003"}), "data/QNDR_003");
}

TEST(CommandLine, UsageNamesTheProgramAsItWasCalled) {
  testing::internal::CaptureStderr();
  print_usage("./lidar_node");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), kUsage);
  testing::internal::CaptureStderr();
  print_usage("/opt/x");
  EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("Usage: /opt/x [--cali_path", 0), 0U);
}

TEST(CommandLine, HelpEndsWellInBothSpellings) {
  ExpectEnd(Parse({"--help"}), 0, "");
  ExpectEnd(Parse({"-h"}), 0, "");
}

TEST(CommandLine, HelpWinsOverEveryFaultOnTheLine) {
  ExpectEnd(Parse({"--cali_path", "--help"}), 0, "");
  ExpectEnd(Parse({"--cali_path", "-h"}), 0, "");
  ExpectEnd(Parse({"a", "b", "-h", "c"}), 0, "");
  ExpectEnd(Parse({"--cali_path", "", "--help"}), 0, "");
  ExpectEnd(Parse({"--cali_path", "a", "--cali_path", "b", "-h"}), 0, "");
  ExpectEnd(Parse({"-h", "--cali_path"}), 0, "");
}

TEST(CommandLine, CaliPathAsTheLastArgumentIsRefused) {
  const std::string message = "[ERROR] --cali_path requires a directory path\n";
  ExpectEnd(Parse({"--cali_path"}), 1, message);
  // The missing value is found before the repetition.
  ExpectEnd(Parse({"--cali_path", "a", "--cali_path"}), 1, message);
}

TEST(CommandLine, AValueThatLooksLikeAnOptionIsRefused) {
  const std::string message = "[ERROR] --cali_path expects a directory path, got: ";
  ExpectEnd(Parse({"--cali_path", "-x"}), 1, message + "-x\n");
  ExpectEnd(Parse({"--cali_path", "-"}), 1, message + "-\n");
  ExpectEnd(Parse({"--cali_path", "--cali_path"}), 1, message + "--cali_path\n");
  ExpectEnd(Parse({"--cali_path", "--cali_path", "a"}), 1, message + "--cali_path\n");
}

TEST(CommandLine, AnEmptyValueIsRefused) {
  ExpectEnd(Parse({"--cali_path", ""}), 1, "[ERROR] --cali_path expects a directory path, got: \n");
}

TEST(CommandLine, ASecondCaliPathIsRefused) {
  const std::string message = "[ERROR] --cali_path specified more than once\n";
  ExpectEnd(Parse({"--cali_path", "a", "--cali_path", "b"}), 1, message);
  // The repetition is found before its bad value.
  ExpectEnd(Parse({"--cali_path", "a", "--cali_path", "-x"}), 1, message);
}

TEST(CommandLine, AnythingElseIsUnknown) {
  ExpectEnd(Parse({"--cali_path", "a", "b"}), 1, "[ERROR] unknown argument: b\n");
  ExpectEnd(Parse({"b", "--cali_path", "a"}), 1, "[ERROR] unknown argument: b\n");
  ExpectEnd(Parse({"--cali_path=a"}), 1, "[ERROR] unknown argument: --cali_path=a\n");
  ExpectEnd(Parse({""}), 1, "[ERROR] unknown argument: \n");
  ExpectEnd(Parse({"--verbose", "x"}), 1, "[ERROR] unknown argument: --verbose\n");
}

TEST(CommandLine, FaultsOfCaliPathAreToldBeforeUnknownArguments) {
  ExpectEnd(Parse({"unknown", "--cali_path"}), 1,
            "[ERROR] --cali_path requires a directory path\n");
}

}  // namespace
}  // namespace kerul::lidar
