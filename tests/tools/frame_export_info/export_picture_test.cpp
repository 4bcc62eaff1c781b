#include "frame_export_info/export_picture.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>

namespace kerul::lidar {
namespace {

using Rgb = std::array<int, 3>;

constexpr Rgb kBlack{0, 0, 0};
constexpr Rgb kBlue{0, 0, 255};
constexpr Rgb kRed{255, 0, 0};

Rgb At(const ExportPicture& picture, int row, int col) {
  const auto first = static_cast<std::size_t>(3 * (row * picture.width + col));
  return {picture.rgb[first], picture.rgb[first + 1], picture.rgb[first + 2]};
}

ExportPicture Draw(const ExportFile& file) {
  ExportPicture picture;
  std::string error;
  EXPECT_TRUE(DrawExport(file, Summarize(file), picture, error)) << error;
  return picture;
}

ExportFile FileOf(std::vector<ExportRecord> records) {
  ExportFile file;
  file.header.height = 2;
  file.header.width = 3;
  file.records = std::move(records);
  return file;
}

TEST(ExportPicture, RangeStandsLeftAndReflectivityRight) {
  const ExportPicture picture = Draw(FileOf({{0, 0, 2.0F, 255.0F}, {1, 2, 8.0F, 0.0F}}));
  EXPECT_EQ(picture.width, 10);
  EXPECT_EQ(picture.height, 2);
  EXPECT_EQ(At(picture, 0, 0), kBlue);  // the smallest range
  EXPECT_EQ(At(picture, 1, 2), kRed);   // the largest
  EXPECT_EQ(At(picture, 0, 7), kRed);   // full reflectivity
  EXPECT_EQ(At(picture, 1, 9), kBlue);  // none
  int black = 0;
  for (int row = 0; row < 2; ++row) {
    for (int col = 0; col < 10; ++col) black += At(picture, row, col) == kBlack ? 1 : 0;
  }
  EXPECT_EQ(black, 16);
}

TEST(ExportPicture, ValuesThatAreNotFiniteStayBlack) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const ExportPicture picture = Draw(FileOf({{0, 0, kNan, kNan}, {0, 1, 3.0F, 1e30F}}));
  EXPECT_EQ(At(picture, 0, 0), kBlack);
  EXPECT_EQ(At(picture, 0, 7), kBlack);
  EXPECT_EQ(At(picture, 0, 1), kBlue) << "a single range";
  EXPECT_EQ(At(picture, 0, 8), kRed) << "beyond full reflectivity";
}

TEST(ExportPicture, RangesOfAnySizeAreDrawn) {
  constexpr float kMax = std::numeric_limits<float>::max();
  const ExportPicture picture = Draw(FileOf({{0, 0, -kMax, 0.0F}, {0, 1, kMax, -5.0F}}));
  EXPECT_EQ(At(picture, 0, 0), kBlue);
  EXPECT_EQ(At(picture, 0, 1), kRed);
  EXPECT_EQ(At(picture, 0, 8), kBlue);
}

TEST(ExportPicture, GridsWithoutPixelsOrWithTooManyAreRefused) {
  ExportPicture picture;
  std::string error;
  ExportFile file;
  EXPECT_FALSE(DrawExport(file, {}, picture, error));
  EXPECT_EQ(error, "cannot draw a grid of 0 x 0");
  file.header.height = 65535;
  file.header.width = 65535;
  EXPECT_FALSE(DrawExport(file, {}, picture, error));
  EXPECT_EQ(error, "cannot draw a grid of 65535 x 65535");
}

}  // namespace
}  // namespace kerul::lidar
