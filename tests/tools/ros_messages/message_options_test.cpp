#include "ros_messages/message_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/png_file.h"
#include "support/temp_dir.h"
#include "tools/ros_messages/parse_options.h"

namespace kerul::lidar::ros {
namespace {

// White but for one black pixel, `line` from the top.
std::vector<std::uint8_t> Picture(int line, int col) {
  std::vector<std::uint8_t> rgb(std::size_t{216} * 288 * 3, 255);
  for (int i = 0; i < 3; ++i) rgb[static_cast<std::size_t>((line * 288 + col) * 3 + i)] = 0;
  return rgb;
}

TEST(MessageOptions, AllAreTaken) {
  MessageOptions options;
  EXPECT_EQ(Parse(AddMessageOptions,
                  {"--frame-id", "front", "--valid-only", "--echo", "both", "--every-row", "2",
                   "--every-col", "288"},
                  options),
            "");
  EXPECT_EQ(options.frame_id, "front");
  EXPECT_TRUE(options.valid_only);
  EXPECT_EQ(options.echoes, EchoChoice::kBoth);
  EXPECT_EQ(options.every_row, 2);
  EXPECT_EQ(options.every_col, 288);
  EXPECT_TRUE(options.masked.none());
}

TEST(MessageOptions, NumbersOutsideTheFrameAreRefused) {
  for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
           {"--every-row", "0"}, {"--every-row", "217"}, {"--every-col", "289"}, {"--echo", "3"}}) {
    MessageOptions options;
    EXPECT_NE(Parse(AddMessageOptions, wrong, options), "") << wrong[0];
  }
}

TEST(MessageOptions, BlackPixelsOfTheMaskAreLeftOutCountedFromTheTop) {
  const testing::TempDir dir;
  const std::string path = (dir.path() / "mask.png").string();
  std::string error;
  std::vector<std::uint8_t> rgb = Picture(0, 7);
  rgb[8 * 3] = rgb[8 * 3 + 1] = 0;  // blue, not black
  ASSERT_TRUE(WritePng(path, 288, 216, rgb, error)) << error;
  MessageOptions options;
  EXPECT_EQ(Parse(AddMessageOptions, {"--mask", path}, options), "");
  EXPECT_EQ(options.masked.count(), 1U);
  EXPECT_TRUE(options.masked[215 * 288 + 7]);
}

TEST(MessageOptions, AMaskOfAnotherSizeOrNoneIsAnErrorThatNamesIt) {
  const testing::TempDir dir;
  const std::string path = (dir.path() / "mask.png").string();
  MessageOptions options;
  EXPECT_EQ(Parse(AddMessageOptions, {"--mask", path}, options).find("--mask: " + path + ": "), 0U);
  std::string error;
  ASSERT_TRUE(WritePng(path, 216, 288, std::vector<std::uint8_t>(216 * 288 * 3, 0), error));
  EXPECT_EQ(Parse(AddMessageOptions, {"--mask", path}, options),
            "--mask: " + path + ": the picture has 216 x 288 pixels, not 288 x 216");
  EXPECT_TRUE(options.masked.none());
}

}  // namespace
}  // namespace kerul::lidar::ros
