#include "frame_export_info/png_file.h"

#include <gtest/gtest.h>
#include <png.h>

#include <vector>

#include "temp_dir.h"

namespace kerul::lidar {
namespace {

using export_test::TempDir;

TEST(PngFile, APictureReadsBackAsItWasWritten) {
  const TempDir dir;
  std::vector<std::uint8_t> rgb;
  for (int i = 0; i < 5 * 3 * 3; ++i) rgb.push_back(static_cast<std::uint8_t>(i * 5));
  std::string error;
  ASSERT_TRUE(WritePng(dir.File("a.png"), 5, 3, rgb, &error)) << error;

  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_NE(png_image_begin_read_from_file(&image, dir.File("a.png").c_str()), 0);
  EXPECT_EQ(image.width, 5U);
  EXPECT_EQ(image.height, 3U);
  image.format = PNG_FORMAT_RGB;
  std::vector<std::uint8_t> read(PNG_IMAGE_SIZE(image));
  ASSERT_NE(png_image_finish_read(&image, nullptr, read.data(), 0, nullptr), 0);
  EXPECT_EQ(read, rgb);
}

TEST(PngFile, SizesThatDoNotFitAreRefused) {
  const TempDir dir;
  std::string error;
  EXPECT_FALSE(WritePng(dir.File("a.png"), 5, 3, std::vector<std::uint8_t>(44), &error));
  EXPECT_EQ(error, "the picture's size does not fit its pixels");
  EXPECT_FALSE(WritePng(dir.File("a.png"), 0, 3, {}, &error));
  EXPECT_EQ(error, "a picture needs a pixel");
  EXPECT_FALSE(WritePng(dir.File("a.png"), -1, -3, std::vector<std::uint8_t>(9), nullptr));
}

TEST(PngFile, AFileThatCannotBeWrittenIsTold) {
  const TempDir dir;
  std::string error;
  EXPECT_FALSE(WritePng(dir.File("none/a.png"), 1, 1, {1, 2, 3}, &error));
  EXPECT_EQ(error.substr(0, 14), "cannot write: ");
}

}  // namespace
}  // namespace kerul::lidar
