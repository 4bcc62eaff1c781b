// The program: arguments, output, exit status.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sensor_simulator/capture_file.h"
#include "story_fixture.h"
#include "support/child_process.h"
#include "support/png_file.h"

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

TEST_F(PixelStoryProgram, WritesTheWholeFrameAsTablePictureAndJson) {
  Run({Capture(), "--all", "--picture", directory_.File("fates.png")}, 0);
  EXPECT_EQ(out_.find("fates of the echoes of pixels 0,0 to 215,287\n"), 0U);
  EXPECT_NE(out_.find("the fates add up to 124416 echoes: 62208 pixels with 2 slots each\n"),
            std::string::npos);
  EXPECT_EQ(out_.find("echo slot"), std::string::npos) << "no stories";
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
  std::string error;
  ASSERT_TRUE(ReadPng(directory_.File("fates.png"), width, height, rgb, error)) << error;
  EXPECT_EQ(width, 1160);
  EXPECT_EQ(height, 432);
  Run({Capture(), "--all", "--json", "-"}, 0);
  EXPECT_EQ(out_.find("{\n\"format\":\"pixel_story\",\n\"version\":1,\n"), 0U);
  EXPECT_NE(out_.find("\"stories\":[],\n\"fates\":{"), std::string::npos);
}

TEST_F(PixelStoryProgram, TellsTheFrameUnderOtherSettingsToo) {
  Run({Capture(), "--pixel", "100,144", "--set", "neighbor_check_enable=false", "--set",
       "shot_noise_enable=false"},
      0);
  std::size_t place = 0;
  for (const char* text :
       {"---- as configured\n\npixel 100,144", "  neighbours (only here)\n",
        "---- with neighbor_check_enable=false, shot_noise_enable=false\n\npixel 100,144",
        "---- what changes in the whole frame\n\n", " of 124416 echoes have another fate"}) {
    place = out_.find(text, place);
    ASSERT_NE(place, std::string::npos) << text << out_;
  }
  Run({Capture(), "--pixel", "100,144", "--set", "neighbour=1"}, 1);
  EXPECT_NE(err_.find("no such setting, the nearest is"), std::string::npos) << err_;
  Run({"--set", "help"}, 0);
  EXPECT_EQ(out_.find("output_mode "), 0U);
  Run({Capture(), "--rect", "100,144,100,145", "--set", "env_bias=3", "--html",
       directory_.File("page.html")},
      0);
  std::ifstream page(directory_.File("page.html"));
  const std::string html{std::istreambuf_iterator<char>(page), {}};
  EXPECT_NE(html.find("<div class=\"pair\" id=\"pixel-100-145\">"), std::string::npos);
  EXPECT_NE(html.find("<h2>with env_bias=3</h2>"), std::string::npos);
}

TEST_F(PixelStoryProgram, WantsOneSource) {
  Run({"--pixel", "3,4"}, 1);
  EXPECT_NE(err_.find("a capture file or --live is needed"), std::string::npos) << err_;
  Run({Capture(), "--live", "2400", "--pixel", "3,4"}, 1);
  EXPECT_NE(err_.find("exclude each other"), std::string::npos) << err_;
  Run({"--live", "2400", "--frame", "1", "--pixel", "3,4"}, 1);
  EXPECT_NE(err_.find("--frame is for captures"), std::string::npos) << err_;
  Run({"--live", "0", "--pixel", "3,4"}, 1);
  EXPECT_NE(err_, "");
}

TEST_F(PixelStoryProgram, HasTheOptionsOfItsManualPageAndNoOthers) {
  std::ifstream page(KERUL_SOURCE_DIR "/docs/man/pixel_story.1");
  std::set<std::string> described{"--help"};
  const std::regex option("Fl (-[a-z-]+)");
  for (std::string line; std::getline(page, line);) {
    if (!line.starts_with(".It Fl ")) continue;
    for (std::sregex_iterator one(line.begin(), line.end(), option), end; one != end; ++one) {
      described.insert("-" + (*one)[1].str());
    }
  }
  Run({"--help"}, 0);
  std::set<std::string> offered;
  std::istringstream help(out_);
  for (std::string line; std::getline(help, line);) {
    const std::size_t at = line.find("--");
    const bool begins = at != std::string::npos && (line.find_first_not_of(' ') == at ||
                                                    line.find("-h,--help") != std::string::npos);
    if (begins) offered.insert(line.substr(at, line.find_first_of(" :", at) - at));
  }
  EXPECT_EQ(offered, described);
  EXPECT_GE(offered.size(), 15U);
  Run({Capture(), "--point", "5,0,0", "--mount"}, 0);
}

TEST_F(PixelStoryProgram, SaysWhatItCannotWrite) {
  for (const char* option : {"--json", "--html", "--picture"}) {
    Run({Capture(), "--pixel", "3,4", option, directory_.File("no/such")}, 1);
    EXPECT_NE(err_.find("no/such"), std::string::npos) << option << err_;
  }
}

}  // namespace
}  // namespace kerul::lidar::story
