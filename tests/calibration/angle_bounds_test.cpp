// The grid down to its last bit: the order of its products, and which side of a bound counts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "calibration/angle_calib.h"
#include "calibration/angle_records.h"
#include "reference/para2.h"

namespace kerul::lidar {
namespace {

// A single product in another order is off by a rounding, in some pixels of some tilts.
TEST(AngleGridBits, EqualThoseOfTheFormulasAsWrittenForManyTilts) {
  int compared = 0;
  for (int i = 0; i < 40; ++i) {
    QndrAngleDatRecord record = PlainRecord();
    record.rows = 24;
    record.cols = 32;
    record.tilt_tan = 0.05F + 0.011F * static_cast<float>(i);
    record.tilt_azimuth = -7.0F + 0.37F * static_cast<float>(i);
    record.k[0] = -0.04F;
    const AngleCalibGrid grid = GridOf(record);
    const AngleCalibGrid want =
        reference::AngleGrid(reinterpret_cast<const std::uint8_t*>(&record), sizeof(record));
    ASSERT_EQ(grid.xyz.size(), want.xyz.size());
    EXPECT_EQ(std::memcmp(grid.xyz.data(), want.xyz.data(), 4 * want.xyz.size()), 0) << i;
    EXPECT_EQ(std::memcmp(grid.unit_xyz.data(), want.unit_xyz.data(), 4 * want.xyz.size()), 0) << i;
    ++compared;
  }
  EXPECT_EQ(compared, 40);
}

// The table's last radius belongs to no pixel; the float below it does.
TEST(AngleGridBounds, ARadiusAtTheTablesEndHasNoDirection) {
  std::vector<float> radius;
  std::vector<float> theta;
  const float no_distortion[4] = {};
  QndrAngleDatRecord record = PlainRecord();
  const float f = record.f;
  angle_calib_detail::BuildDistortionInterp(f, no_distortion, radius, theta);
  const float last = radius.back();
  // Column 200 stands at sensor column 401: the principal point goes where that is `last` away.
  bool at_end = false;
  bool below = false;
  float cx = 401.0F - f * last - 0.01F;
  for (int step = 0; step < 2000; ++step, cx = std::nextafter(cx, kInf)) {
    const float r = (401.0F - cx) / f;
    if (r != last && r != std::nextafter(last, 0.0F)) continue;
    record.cx = cx;
    const AngleCalibGrid grid = GridOf(record);
    const Triple ray = Entry(grid, grid.xyz, 144, 200);
    if (r == last) {
      EXPECT_EQ(ray, kZero);
      at_end = true;
    } else {
      EXPECT_NE(ray, kZero);
      below = true;
    }
    if (at_end && below) break;
  }
  EXPECT_TRUE(at_end);
  EXPECT_TRUE(below);
}

// Width and height 0, so that one column of pixels has r = 289 / f and r_max comes of cy alone.
TEST(AngleGridBounds, TheLargestRadiusItselfHasADirection) {
  QndrAngleDatRecord record = PlainRecord();
  record.binning = 0x00;
  record.rows = 2;
  record.cols = 2;
  record.cx = 1.0F;
  record.cy = 287.0F;
  const float r_max = std::sqrt(1.0F + 287.0F * 287.0F) * 0.01008F + 0.1F;
  float f = 289.0F / r_max - 1e-4F;
  bool at = false;
  bool above = false;
  for (int step = 0; step < 100; ++step, f = std::nextafter(f, kInf)) {
    const float r = 289.0F / f;
    if (r != r_max && r != std::nextafter(r_max, kInf)) continue;
    record.f = f;
    const AngleCalibGrid grid = GridOf(record);
    if (r == r_max) {
      EXPECT_NE(Entry(grid, grid.xyz, 0, 0), kZero);
      at = true;
    } else {
      EXPECT_EQ(Entry(grid, grid.xyz, 0, 0), kZero);
      above = true;
    }
  }
  EXPECT_TRUE(at);
  EXPECT_TRUE(above);
}

}  // namespace
}  // namespace kerul::lidar
