// The program with a frame that is asked for by number and time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "sensor_simulator/capture_file.h"
#include "story_fixture.h"
#include "support/child_process.h"

namespace kerul::lidar::story {
namespace {

using testing::ChildProcess;
using ::testing::HasSubstr;

class ProgramFrame : public ::testing::Test {
 protected:
  ProgramFrame() {
    simulator::CaptureWriter writer(directory_.File("run.pcap"), {});
    std::uint64_t time_us = 1'700'000'000'000'000;
    for (const UdpPacket& packet : SimulatedFrames("retro", 2, 8)) {
      writer.Write(time_us += 14, {packet.buffer, 692});
    }
    writer.Close();
  }

  // The output of pixel_story on the folder with the capture.
  std::string Run(const std::vector<std::string>& more, int status) {
    std::vector<std::string> command{KERUL_BINARY_DIR "/tools/pixel_story",
                                     directory_.path().string(),
                                     "--calib",
                                     CalibrationDir(),
                                     "--pixel",
                                     "100,140"};
    command.insert(command.end(), more.begin(), more.end());
    ChildProcess program(command, directory_.path());
    EXPECT_EQ(program.WaitForExit(), status) << program.Err();
    return status == 0 ? program.Out() : program.Err();
  }

  testing::TempDir directory_;
};

TEST_F(ProgramFrame, IsToldAndItsPacketsAreWritten) {
  const std::string told = Run({"--frame-id", "9", "--time", "1700000000.1,1700000000.2",
                                "--packets", directory_.File("packets")},
                               0);
  EXPECT_THAT(told, HasSubstr("pixel 100,140, echo slot 0"));
  const std::string packets = directory_.Read("packets");
  ASSERT_EQ(packets.size(), 1728U * 249);
  for (std::size_t at = 0; at < packets.size(); at += 249) {
    ASSERT_EQ(packets.substr(at, 2), "\xEE\xFF") << at;
    ASSERT_EQ(packets[at + 209], 9) << at;  // the frame's number
  }
}

TEST_F(ProgramFrame, ThatIsNotThereHasAStatusOfItsOwn) {
  EXPECT_EQ(Run({"--frame-id", "7", "--time", "1700000000.1,1700000000.2"}, 2),
            "pixel_story: the capture holds no frame 7 of that time\n");
}

TEST_F(ProgramFrame, NeedsBothOfItsOptionsAndATimeThatCanBe) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--frame-id", "9"},
        {"--time", "1,2"},
        {"--frame-id", "256", "--time", "1,2"},
        {"--frame-id", "9", "--time", "2,1"},
        {"--frame-id", "9", "--time", "1,12"},
        {"--frame-id", "9", "--time", "nan,nan"},
        {"--frame", "1", "--frame-id", "9", "--time", "1,2"}}) {
    EXPECT_NE(Run(words, 1), "") << words[1];
  }
}

TEST_F(ProgramFrame, AnInterruptLeavesNoRingBehind) {
  ChildProcess program({KERUL_BINARY_DIR "/tools/pixel_story", directory_.File("run.pcap"),
                        "--calib", CalibrationDir(), "--all", "--frame", "1"},
                       directory_.path());
  const std::string ring = "/dev/shm/pixel_story_" + std::to_string(program.pid()) + "_0";
  while (!std::filesystem::exists(ring) && !program.WaitForExit(std::chrono::milliseconds(0))) {
  }
  program.Signal(SIGTERM);
  program.WaitForExit();
  EXPECT_FALSE(std::filesystem::exists(ring));
}

}  // namespace
}  // namespace kerul::lidar::story
