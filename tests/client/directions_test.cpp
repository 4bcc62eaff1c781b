#include "kerul_lidar/directions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "client/plain_angle_record.h"
#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

const std::array<float, 3>& At(const Directions& directions, int row, int col) {
  return directions.unit[static_cast<std::size_t>(row * 288 + col)];
}

TEST(Directions, AnAngleFileIsTaken) {
  const testing::TempDir folder;
  folder.Write("Lidar-ab12_angle_calib.dat", BytesOf(PlainRecord()));
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(directions.origin, folder.File("Lidar-ab12_angle_calib.dat"));
  // Column 144: px = 289, straight ahead sideways. Row 108: py = 36 * 2 + 1 + 216 = 289, and
  // 576 - 1 - 289 - 286 = 0. The grid marks this pixel with (0, 0, 1).
  EXPECT_EQ(At(directions, 108, 144), (std::array<float, 3>{1.0F, 0.0F, 0.0F}));
  // 100 columns further: 200 cells, an angle of 200 / 340 to the right.
  const auto& right = At(directions, 108, 244);
  EXPECT_NEAR(right[0], std::cos(200.0 / 340.0), 1e-4);
  EXPECT_NEAR(right[1], -std::sin(200.0 / 340.0), 1e-4);
  EXPECT_NEAR(right[2], 0.0, 1e-6);
}

TEST(Directions, TheRecordInAHeadPageIsTaken) {
  const testing::TempDir folder;
  std::vector<std::uint8_t> head(256, 0xFF);
  const std::vector<std::uint8_t> record = BytesOf(PlainRecord());
  std::copy(record.begin(), record.end(), head.begin() + 20);
  folder.Write("ab12_head.bin", head);
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(directions.origin, folder.File("ab12_head.bin"));
  EXPECT_EQ(At(directions, 108, 144)[0], 1.0F);
}

TEST(Directions, TheAngleFileGoesBeforeTheHeadPageAndNamesInOrder) {
  const testing::TempDir folder;
  folder.Write("ab_head.bin", {});
  folder.Write("Lidar-b_angle_calib.dat", {});
  folder.Write("Lidar-a_angle_calib.dat", BytesOf(PlainRecord()));
  folder.Write("Lidar-0_angle_calib.dat.old", {});
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(directions.origin, folder.File("Lidar-a_angle_calib.dat"));
}

TEST(Directions, AFolderWithoutEitherFileIsAnError) {
  const testing::TempDir folder;
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error, "no Lidar-*_angle_calib.dat and no *_head.bin in " + folder.path().string());
  EXPECT_FALSE(LoadDirections(folder.File("missing"), directions, error));
}

TEST(Directions, AShortOrSenselessRecordIsAnError) {
  const testing::TempDir folder;
  const std::string file = folder.File("Lidar-a_angle_calib.dat");
  folder.Write("Lidar-a_angle_calib.dat", std::vector<std::uint8_t>(77, 1));
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error.find(file + ": "), 0U) << error;
  folder.Write("Lidar-a_angle_calib.dat", std::vector<std::uint8_t>(78, 0));
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
}

TEST(Directions, AHeadPageCutBeforeTheRecordIsAnError) {
  const testing::TempDir folder;
  folder.Write("a_head.bin", std::vector<std::uint8_t>(10, 1));
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
}

TEST(Directions, AGridOfAnotherSizeIsAnError) {
  const testing::TempDir folder;
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 100;
  folder.Write("Lidar-a_angle_calib.dat", BytesOf(record));
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error,
            folder.File("Lidar-a_angle_calib.dat") + ": 100 x 288 pixels instead of 216 x 288");
}

TEST(Directions, AFifoInPlaceOfARecordHoldsNobody) {
  const testing::TempDir folder;
  ASSERT_EQ(mkfifo(folder.File("Lidar-a_angle_calib.dat").c_str(), 0600), 0);
  Directions directions;
  std::string error;
  EXPECT_FALSE(LoadDirections(folder.path().string(), directions, error));
  EXPECT_EQ(error.substr(0, error.find(": ")), folder.File("Lidar-a_angle_calib.dat"));
}

TEST(Directions, TheRecordOfASensorsOwnFolderIsFoundBelowIt) {
  const testing::TempDir folder;
  std::filesystem::create_directory(folder.File("para_read"));
  folder.Write("para_read/Lidar-a_angle_calib.dat", BytesOf(PlainRecord()));
  Directions directions;
  std::string error;
  ASSERT_TRUE(LoadDirections(folder.path().string(), directions, error)) << error;
  EXPECT_EQ(At(directions, 108, 144)[0], 1.0F);
}

}  // namespace
}  // namespace kerul::lidar
