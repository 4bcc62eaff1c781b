// Every program that is installed explains itself, and has its manual page.
#include <filesystem>
#include <string>
#include <vector>

#include "process_fixture.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

// All that were built: some need a library that not every machine has.
std::vector<std::string> Tools() {
  std::vector<std::string> tools;
  for (const auto& file : fs::directory_iterator(KERUL_BINARY_DIR "/tools")) {
    const std::string name = file.path().filename();
    if (fs::exists(fs::path(KERUL_SOURCE_DIR) / "tools" / name / "main.cpp")) tools.push_back(name);
  }
  return tools;
}

class ProgramHelp : public ProcessTest, public ::testing::WithParamInterface<std::string> {
 protected:
  ChildProcess Run(const std::string& argument) const {
    return ChildProcess({KERUL_BINARY_DIR "/tools/" + GetParam(), argument}, Directory());
  }
};

TEST_P(ProgramHelp, IsPrintedByBothSpellings) {
  for (const char* spelling : {"--help", "-h"}) {
    ChildProcess program = Run(spelling);
    EXPECT_EQ(program.WaitForExit(), 0);
    EXPECT_NE(program.Out().find(std::string(GetParam()) + " [OPTIONS]"), std::string::npos);
    EXPECT_NE(program.Out().find("-h,--help"), std::string::npos);
    EXPECT_EQ(program.Err(), "");
  }
}

TEST_P(ProgramHelp, IsPointedAtByAWrongOption) {
  ChildProcess program = Run("--no-such-option");
  EXPECT_GT(program.WaitForExit().value_or(0), 0);
  EXPECT_NE(program.Err().find("--help"), std::string::npos);
  EXPECT_EQ(program.Out(), "");
}

TEST_P(ProgramHelp, HasAManualPage) {
  EXPECT_TRUE(fs::exists(fs::path(KERUL_SOURCE_DIR) / "docs/man" / (GetParam() + ".1")));
}

INSTANTIATE_TEST_SUITE_P(Tools, ProgramHelp, ::testing::ValuesIn(Tools()),
                         [](const auto& tool) { return tool.param; });
// A ring that does not come to be.
TEST_F(ProcessTest, SoakWatchCountsNothingWithoutARing) {
  ChildProcess watch({KERUL_BINARY_DIR "/tools/soak_watch", "kerul_no_such_ring"}, Directory());
  EXPECT_EQ(watch.WaitForExit(std::chrono::milliseconds(200)), std::nullopt);
  EXPECT_EQ(watch.Interrupt(), 0);
  EXPECT_EQ(watch.Out(),
            "accepted=0\nlost=0\ntorn=0\nrefused=0\nframes=0\nframes_backwards=0\n"
            "frames_missing=0\npackets_backwards=0\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
