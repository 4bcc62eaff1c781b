#include "support/point_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kerul::lidar {
namespace {

const std::vector<CloudPoint> kPoints{{1.0F, -2.0F, 0.5F, 200.0F, 3, 258, 1, 0},
                                      {4.0F, 5.0F, 6.0F, 7.0F, 215, 287, 0, 1}};

// The two points' bytes, worked out by hand: IEEE single precision, little-endian.
const std::string kFirst("\x00\x00\x80\x3F\x00\x00\x00\xC0\x00\x00\x00\x3F\x00\x00\x48\x43", 16);
const std::string kSecond("\x00\x00\x80\x40\x00\x00\xA0\x40\x00\x00\xC0\x40\x00\x00\xE0\x40", 16);
const std::string kFirstPixel("\x03\x00\x02\x01", 4);
const std::string kSecondPixel("\xD7\x00\x1F\x01", 4);
const std::string kFirstEcho("\x01\x00", 2);
const std::string kSecondEcho("\x00\x01", 2);

std::string Text(const std::vector<char>& bytes) { return {bytes.begin(), bytes.end()}; }

TEST(PointFiles, PcdHoldsHeaderAndPackedPoints) {
  EXPECT_EQ(Text(EncodePcd(kPoints, PointFields::kPixelAndEcho)),
            "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n"
            "FIELDS x y z intensity row col echo ground\nSIZE 4 4 4 4 2 2 1 1\n"
            "TYPE F F F F U U U U\nCOUNT 1 1 1 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\n"
            "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS 2\nDATA binary\n" +
                kFirst + kFirstPixel + kFirstEcho + kSecond + kSecondPixel + kSecondEcho);
}

TEST(PointFiles, PcdWithoutEchoesHoldsPixelsOnly) {
  EXPECT_EQ(Text(EncodePcd(kPoints, PointFields::kPixel)),
            "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n"
            "FIELDS x y z intensity row col\nSIZE 4 4 4 4 2 2\nTYPE F F F F U U\n"
            "COUNT 1 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS 2\n"
            "DATA binary\n" +
                kFirst + kFirstPixel + kSecond + kSecondPixel);
}

TEST(PointFiles, PcdOfFloatsHasNoOtherType) {
  // 3, 258, 1, 0 and 215, 287, 0, 1 as floats.
  const std::string first("\x00\x00\x40\x40\x00\x00\x81\x43\x00\x00\x80\x3F\x00\x00\x00\x00", 16);
  const std::string second("\x00\x00\x57\x43\x00\x80\x8F\x43\x00\x00\x00\x00\x00\x00\x80\x3F", 16);
  EXPECT_EQ(Text(EncodePcd(kPoints, PointFields::kPixelAndEcho, PcdNumbers::kFloats)),
            "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n"
            "FIELDS x y z intensity row col echo ground\nSIZE 4 4 4 4 4 4 4 4\n"
            "TYPE F F F F F F F F\nCOUNT 1 1 1 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\n"
            "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS 2\nDATA binary\n" +
                kFirst + first + kSecond + second);
  EXPECT_EQ(Text(EncodePcd(kPoints, PointFields::kPixel, PcdNumbers::kFloats)),
            "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n"
            "FIELDS x y z intensity row col\nSIZE 4 4 4 4 4 4\nTYPE F F F F F F\n"
            "COUNT 1 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS 2\n"
            "DATA binary\n" +
                kFirst + first.substr(0, 8) + kSecond + second.substr(0, 8));
}

TEST(PointFiles, PlyHoldsHeaderAndPackedPoints) {
  const std::string begin =
      "ply\nformat binary_little_endian 1.0\nelement vertex 2\nproperty float x\n"
      "property float y\nproperty float z\nproperty float intensity\nproperty ushort row\n"
      "property ushort col\n";
  EXPECT_EQ(Text(EncodePly(kPoints, PointFields::kPixelAndEcho)),
            begin + "property uchar echo\nproperty uchar ground\nend_header\n" + kFirst +
                kFirstPixel + kFirstEcho + kSecond + kSecondPixel + kSecondEcho);
  EXPECT_EQ(Text(EncodePly(kPoints, PointFields::kPixel)),
            begin + "end_header\n" + kFirst + kFirstPixel + kSecond + kSecondPixel);
}

TEST(PointFiles, AnEmptyCloudIsAFileToo) {
  EXPECT_TRUE(Text(EncodePcd({}, PointFields::kPixel)).ends_with("POINTS 0\nDATA binary\n"));
  EXPECT_NE(Text(EncodePly({}, PointFields::kPixel)).find("element vertex 0\n"), std::string::npos);
}

}  // namespace
}  // namespace kerul::lidar
