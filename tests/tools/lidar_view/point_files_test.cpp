#include "lidar_view/point_files.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/temp_dir.h"
#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::view {
namespace {

const std::vector<ViewPoint> kPoints{{1.0F, -2.0F, 0.5F, 200, 3, 258, 1, 0},
                                     {4.0F, 5.0F, 6.0F, 7, 215, 287, 0, 1}};

// The second point's 22 bytes, worked out by hand: IEEE single precision, little-endian.
const std::vector<std::uint8_t> kSecondPoint{0x00, 0x00, 0x80, 0x40, 0x00, 0x00, 0xA0, 0x40,
                                             0x00, 0x00, 0xC0, 0x40, 0x00, 0x00, 0xE0, 0x40,
                                             0xD7, 0x00, 0x1F, 0x01, 0x00, 0x01};

void CheckFile(const std::string& text, const std::string& header) {
  ASSERT_EQ(text.size(), header.size() + 2 * 22);
  EXPECT_EQ(text.substr(0, header.size()), header);
  float first[4];
  std::memcpy(first, text.data() + header.size(), sizeof first);
  EXPECT_EQ(first[0], 1.0F);
  EXPECT_EQ(first[1], -2.0F);
  EXPECT_EQ(first[2], 0.5F);
  EXPECT_EQ(first[3], 200.0F);
  const std::string second(kSecondPoint.begin(), kSecondPoint.end());
  EXPECT_EQ(text.substr(header.size() + 22), second);
}

TEST(PointFiles, PcdHoldsHeaderAndPackedPoints) {
  std::string error;
  const testing::TempDir folder;
  ASSERT_TRUE(WritePcd(folder.File("a.pcd"), kPoints, error));
  CheckFile(folder.Read("a.pcd"),
            "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n"
            "FIELDS x y z intensity row col echo ground\nSIZE 4 4 4 4 2 2 1 1\n"
            "TYPE F F F F U U U U\nCOUNT 1 1 1 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\n"
            "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS 2\nDATA binary\n");
}

TEST(PointFiles, PlyHoldsHeaderAndPackedPoints) {
  std::string error;
  const testing::TempDir folder;
  ASSERT_TRUE(WritePly(folder.File("a.ply"), kPoints, error));
  CheckFile(folder.Read("a.ply"),
            "ply\nformat binary_little_endian 1.0\nelement vertex 2\nproperty float x\n"
            "property float y\nproperty float z\nproperty float intensity\nproperty ushort row\n"
            "property ushort col\nproperty uchar echo\nproperty uchar ground\nend_header\n");
}

TEST(PointFiles, AnEmptyCloudIsAFileToo) {
  std::string error;
  const testing::TempDir folder;
  ASSERT_TRUE(WritePly(folder.File("a.ply"), {}, error));
  EXPECT_NE(folder.Read("a.ply").find("element vertex 0\n"), std::string::npos);
  ASSERT_TRUE(WritePcd(folder.File("a.pcd"), {}, error));
  EXPECT_NE(folder.Read("a.pcd").find("POINTS 0\n"), std::string::npos);
}

TEST(PointFiles, AnImpossiblePathFails) {
  std::string error;
  const testing::TempDir folder;
  EXPECT_FALSE(WritePcd(folder.File("no/such/folder.pcd"), kPoints, error));
  EXPECT_FALSE(WritePly(folder.File("no/such/folder.ply"), kPoints, error));
}

}  // namespace
}  // namespace kerul::lidar::view
