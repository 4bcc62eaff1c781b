// The program: arguments, output, exit status.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sensor_simulator/capture_file.h"
#include "story_fixture.h"
#include "support/child_process.h"

namespace kerul::lidar::story {
namespace {

using testing::ChildProcess;

class PixelStoryProgram : public ::testing::Test {
 protected:
  PixelStoryProgram() {
    simulator::CaptureWriter writer(Capture(), {});
    for (const UdpPacket& packet : SimulatedFrames("targets", 1)) {
      writer.Write(1, {packet.buffer, 692});
    }
    writer.Close();
  }
  std::string Capture() const { return directory_.File("run.pcap"); }

  // Ends with `status`.
  void Run(const std::vector<std::string>& arguments, int status) {
    std::vector<std::string> command{KERUL_BINARY_DIR "/tools/pixel_story", "--calib",
                                     CalibrationDir()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess program(command, directory_.path());
    EXPECT_EQ(program.WaitForExit(), status);
    out_ = program.Out();
    err_ = program.Err();
  }

  testing::TempDir directory_;
  std::string out_;
  std::string err_;
};

TEST_F(PixelStoryProgram, TellsEachPixelOfARectangle) {
  Run({Capture(), "--rect", "3,4,4,5"}, 0);
  EXPECT_EQ(err_, "");
  std::size_t place = 0;
  for (const char* title :
       {"pixel 3,4, echo slot 0\n  samples\n", "  reflectivity\n", "  prime\n",
        "pixel 3,4, echo slot 1\n", "pixel 3,5, echo slot 0\n", "pixel 4,4, echo slot 0\n",
        "pixel 4,5, echo slot 1\n", "  published\n"}) {
    place = out_.find(title, place);
    ASSERT_NE(place, std::string::npos) << title;
  }
}

TEST_F(PixelStoryProgram, WritesAPageInsteadOfText) {
  Run({Capture(), "--pixel", "3,4", "--html", "page.html"}, 0);
  EXPECT_EQ(out_ + err_, "");
  std::ifstream file(directory_.File("page.html"));
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  EXPECT_TRUE(page.starts_with("<!DOCTYPE html>"));
  EXPECT_NE(page.find("<h3>published</h3>"), std::string::npos);
  EXPECT_TRUE(page.ends_with("</html>\n"));
  Run({Capture(), "--pixel", "3,4", "--html", "none/page.html"}, 1);
  EXPECT_TRUE(err_.starts_with("pixel_story: none/page.html: ")) << err_;
}

TEST_F(PixelStoryProgram, SaysWhatItCannotUse) {
  Run({Capture(), "--pixel", "3,4", "--frame", "1"}, 1);
  EXPECT_EQ(err_, "pixel_story: there is no frame 1: the last one is 0\n");
  EXPECT_EQ(out_, "");
  Run({directory_.File("none.pcap"), "--pixel", "3,4"}, 1);
  EXPECT_NE(err_.find("none.pcap"), std::string::npos) << err_;
  Run({Capture(), "--point", "0,0,9"}, 1);
  EXPECT_NE(err_.find("no pixel looks at the point"), std::string::npos) << err_;
}

TEST_F(PixelStoryProgram, PixelsOutsideTheFrameAreRefused) {
  for (const char* pixel : {"216,0", "0,288", "-1,0"}) {
    Run({Capture(), std::string("--pixel=") + pixel}, 1);
    EXPECT_NE(err_, "") << pixel;
  }
  Run({Capture(), "--rect", "5,5,4,9"}, 1);
  EXPECT_NE(err_.find("second corner lies before"), std::string::npos) << err_;
  Run({Capture()}, 1);
  EXPECT_NE(err_.find("--pixel"), std::string::npos) << err_;
}

}  // namespace
}  // namespace kerul::lidar::story
