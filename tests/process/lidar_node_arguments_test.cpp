// The node's command line as a user meets it: exit status and every byte on both streams.
#include <initializer_list>
#include <string>
#include <vector>

#include "process_fixture.h"

namespace kerul::lidar::testing {
namespace {

const std::string kUsage =
    "Usage: " + kNodeProgram +
    " [--cali_path <dir>] [--help]\n"
    "  (default)              load para2 via RCX (head once; cache if ready)\n"
    "  --cali_path <dir>      skip RCX; load from e.g. data/QNDR_003\n"
    "                         (expects <dir>/para_read/<id>_head.bin + <id>_para2.bin)\n";

class LidarNodeArguments : public ProcessTest {
 protected:
  // The program ends before it starts anything.
  void ExpectUsage(std::initializer_list<const char*> arguments, int status,
                   const std::string& message) const {
    const std::vector<std::string> given(arguments.begin(), arguments.end());
    SCOPED_TRACE(::testing::PrintToString(given));
    const auto node = StartNode(given);
    EXPECT_EQ(node->WaitForExit(), status);
    EXPECT_EQ(node->Out(), "");
    EXPECT_EQ(node->Err(), message + kUsage);
  }
};

TEST_F(LidarNodeArguments, HelpPrintsTheUsageAndEndsWell) {
  ExpectUsage({"--help"}, 0, "");
  ExpectUsage({"-h"}, 0, "");
}

TEST_F(LidarNodeArguments, HelpWinsOverEveryFaultOnTheLine) {
  ExpectUsage({"--cali_path", "--help"}, 0, "");
  ExpectUsage({"--cali_path", "-h"}, 0, "");
  ExpectUsage({"a", "-h", "--b"}, 0, "");
  ExpectUsage({"--cali_path", "a", "--cali_path", "b", "--help"}, 0, "");
}

TEST_F(LidarNodeArguments, AValueThatLooksLikeAnOptionIsRefused) {
  ExpectUsage({"--cali_path", "-x"}, 1, "[ERROR] --cali_path expects a directory path, got: -x\n");
  ExpectUsage({"--cali_path", "--cali_path"}, 1,
              "[ERROR] --cali_path expects a directory path, got: --cali_path\n");
}

TEST_F(LidarNodeArguments, AnEmptyValueIsRefused) {
  ExpectUsage({"--cali_path", ""}, 1, "[ERROR] --cali_path expects a directory path, got: \n");
}

TEST_F(LidarNodeArguments, ASecondCaliPathIsRefused) {
  ExpectUsage({"--cali_path", "a", "--cali_path", "b"}, 1,
              "[ERROR] --cali_path specified more than once\n");
}

TEST_F(LidarNodeArguments, AMissingValueIsRefused) {
  ExpectUsage({"--cali_path"}, 1, "[ERROR] --cali_path requires a directory path\n");
  ExpectUsage({"--cali_path", "a", "--cali_path"}, 1,
              "[ERROR] --cali_path requires a directory path\n");
}

TEST_F(LidarNodeArguments, AnythingElseIsUnknown) {
  ExpectUsage({"--cali_path", "a", "b"}, 1, "[ERROR] unknown argument: b\n");
  ExpectUsage({"--verbose"}, 1, "[ERROR] unknown argument: --verbose\n");
  ExpectUsage({""}, 1, "[ERROR] unknown argument: \n");
}

}  // namespace
}  // namespace kerul::lidar::testing
