#include "frame_export_info/point_files.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <vector>

#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

using testing::TempDir;

const std::vector<ExportPoint> kPoints{{1.0F, -2.0F, 0.5F, 40.0F, 3, 258},
                                       {4.0F, 5.0F, 6.0F, 7.0F, 8, 9}};

// The two points in the bytes of both binary formats.
std::string Body() {
  std::string body;
  const auto put = [&](auto value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    body.append(bytes, sizeof value);
  };
  for (const ExportPoint& point : kPoints) {
    for (const float value : {point.x, point.y, point.z, point.intensity}) put(value);
    put(point.row);
    put(point.col);
  }
  EXPECT_EQ(body.size(), 40U);
  EXPECT_EQ(body.substr(16, 4), std::string("\x03\x00\x02\x01", 4));
  return body;
}

TEST(PointFiles, CsvHoldsEveryRecordExactly) {
  const TempDir dir;
  std::string error;
  const std::vector<ExportRecord> records{{0, 1, 2.5F, 30.0F},
                                          {3, 4, 0.1F, std::numeric_limits<float>::quiet_NaN()},
                                          {431, 575, 1.2F, 1e-7F}};
  ASSERT_TRUE(WriteCsv(dir.File("a.csv"), records, error)) << error;
  EXPECT_EQ(dir.Read("a.csv"),
            "row,col,range_m,reflectivity\n0,1,2.5,30\n3,4,0.1,nan\n431,575,1.2,1e-07\n");
}

TEST(PointFiles, PcdHoldsHeaderAndPackedPoints) {
  const TempDir dir;
  std::string error;
  ASSERT_TRUE(WritePcd(dir.File("a.pcd"), kPoints, error)) << error;
  EXPECT_EQ(dir.Read("a.pcd"),
            "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n"
            "FIELDS x y z intensity row col\nSIZE 4 4 4 4 2 2\nTYPE F F F F U U\n"
            "COUNT 1 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS 2\n"
            "DATA binary\n" +
                Body());
}

TEST(PointFiles, PlyHoldsHeaderAndPackedPoints) {
  const TempDir dir;
  std::string error;
  ASSERT_TRUE(WritePly(dir.File("a.ply"), kPoints, error)) << error;
  EXPECT_EQ(dir.Read("a.ply"),
            "ply\nformat binary_little_endian 1.0\nelement vertex 2\nproperty float x\n"
            "property float y\nproperty float z\nproperty float intensity\nproperty ushort row\n"
            "property ushort col\nend_header\n" +
                Body());
}

TEST(PointFiles, FilesThatCannotBeWrittenAreTold) {
  const TempDir dir;
  const std::string nowhere = dir.File("none/a");
  std::string error;
  EXPECT_FALSE(WriteCsv(nowhere, {}, error));
  EXPECT_EQ(error, "cannot write: No such file or directory");
  EXPECT_FALSE(WritePcd(nowhere, {}, error));
  EXPECT_FALSE(WritePly(nowhere, {}, error));
  if (!std::filesystem::exists("/dev/full")) return;
  EXPECT_FALSE(WriteCsv("/dev/full", {}, error));
  EXPECT_EQ(error, "cannot write: No space left on device");
}

}  // namespace
}  // namespace kerul::lidar
