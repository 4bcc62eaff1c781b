#include "support/png_file.h"

#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <vector>

#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

TEST(PngFile, APictureReadsBackAsItWasWritten) {
  const testing::TempDir dir;
  std::vector<std::uint8_t> rgb;
  for (int i = 0; i < 5 * 3 * 3; ++i) rgb.push_back(static_cast<std::uint8_t>(i * 5));
  std::string error;
  ASSERT_TRUE(WritePng((dir.path() / "a.png").string(), 5, 3, rgb, error)) << error;

  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_NE(png_image_begin_read_from_file(&image, (dir.path() / "a.png").string().c_str()), 0);
  EXPECT_EQ(image.width, 5U);
  EXPECT_EQ(image.height, 3U);
  image.format = PNG_FORMAT_RGB;
  std::vector<std::uint8_t> read(PNG_IMAGE_SIZE(image));
  ASSERT_NE(png_image_finish_read(&image, nullptr, read.data(), 0, nullptr), 0);
  EXPECT_EQ(read, rgb);
}

TEST(PngFile, AnyPictureIsReadAsRgbAndWhatIsTransparentIsBlack) {
  const testing::TempDir dir;
  const std::string path = (dir.path() / "a.png").string();
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = 3;
  image.height = 1;
  image.format = PNG_FORMAT_GA;
  const std::uint8_t grey_alpha[6] = {255, 255, 7, 255, 255, 0};
  ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, grey_alpha, 0, nullptr), 0);
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
  std::string error;
  ASSERT_TRUE(ReadPng(path, width, height, rgb, error)) << error;
  EXPECT_EQ(width, 3);
  EXPECT_EQ(height, 1);
  EXPECT_EQ(rgb, (std::vector<std::uint8_t>{255, 255, 255, 7, 7, 7, 0, 0, 0}));
}

TEST(PngFile, WhatIsNoPictureIsTold) {
  const testing::TempDir dir;
  const std::string path = (dir.path() / "a.png").string();
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
  std::string error;
  EXPECT_FALSE(ReadPng(path, width, height, rgb, error));
  EXPECT_NE(error, "");
  ASSERT_TRUE(WritePng(path, 100, 100, std::vector<std::uint8_t>(30000, 9), error)) << error;
  error.clear();
  std::filesystem::resize_file(path, 60);  // the header is whole, the pixels are not
  EXPECT_FALSE(ReadPng(path, width, height, rgb, error));
  EXPECT_NE(error, "");
  ASSERT_TRUE(WritePng(path, 16385, 1, std::vector<std::uint8_t>(3 * 16385, 9), error)) << error;
  EXPECT_FALSE(ReadPng(path, width, height, rgb, error));
  EXPECT_EQ(error, "the picture is too large");
  EXPECT_EQ(width, 0);
}

TEST(PngFile, SizesThatDoNotFitAreRefused) {
  const testing::TempDir dir;
  std::string error;
  EXPECT_FALSE(
      WritePng((dir.path() / "a.png").string(), 5, 3, std::vector<std::uint8_t>(44), error));
  EXPECT_EQ(error, "the picture's size does not fit its pixels");
  EXPECT_FALSE(WritePng((dir.path() / "a.png").string(), 0, 3, {}, error));
  EXPECT_EQ(error, "a picture needs a pixel");
  EXPECT_FALSE(
      WritePng((dir.path() / "a.png").string(), -1, -3, std::vector<std::uint8_t>(9), error));
}

TEST(PngFile, AFileThatCannotBeWrittenIsTold) {
  const testing::TempDir dir;
  std::string error;
  EXPECT_FALSE(WritePng((dir.path() / "none/a.png").string(), 1, 1, {1, 2, 3}, error));
  EXPECT_EQ(error, "No such file or directory");
}

// As root, the node of the device would be gone.
TEST(PngFile, AFailureRemovesNothing) {
  const testing::TempDir dir;
  const std::string full = (dir.path() / "full.png").string();
  if (mknod(full.c_str(), S_IFCHR | 0666, makedev(1, 7)) != 0) GTEST_SKIP() << "not permitted";
  std::string error;
  EXPECT_FALSE(WritePng(full, 1, 1, {1, 2, 3}, error));
  EXPECT_EQ(error, "No space left on device");
  EXPECT_TRUE(std::filesystem::is_character_file(full));
}

}  // namespace
}  // namespace kerul::lidar
