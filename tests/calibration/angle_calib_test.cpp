#include "calibration/angle_calib.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "calibration/angle_records.h"

namespace kerul::lidar {
namespace {

constexpr const char* kParameterText = "角度标定参数无效 (rows/cols/f)";
constexpr const char* kCurveText = "畸变曲线单调点过少，无法插值";

QndrAngleDatRecord LensRecord() {
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 216;
  record.cx = 290.5F;
  record.cy = 284.25F;
  const float k[4] = {-0.04F, 0.006F, -0.0005F, 0.00002F};
  std::memcpy(record.k, k, sizeof(k));
  record.tilt_tan = 0.013F;
  record.tilt_azimuth = 0.7F;
  return record;
}

// Equal down to the bits, so that NaN equals itself.
void ExpectSameGrid(const AngleCalibGrid& a, const AngleCalibGrid& b) {
  ASSERT_GT(a.xyz.size(), 0U);
  ASSERT_EQ(a.xyz.size(), b.xyz.size());
  EXPECT_EQ(std::memcmp(a.xyz.data(), b.xyz.data(), a.xyz.size() * sizeof(float)), 0);
  ASSERT_EQ(a.unit_xyz.size(), b.unit_xyz.size());
  EXPECT_EQ(std::memcmp(a.unit_xyz.data(), b.unit_xyz.data(), a.xyz.size() * sizeof(float)), 0);
}

// The same camera model in double and by other means: the rotation by Rodrigues' formula as a full
// matrix, the projection as the meeting of a line with the image plane, the angle by bisection of
// the lens polynomial.
struct DoubleCamera {
  explicit DoubleCamera(const QndrAngleDatRecord& r) : record(r) {
    const double pi = std::acos(-1.0);
    const double tilt = 2.0 * std::atan(double{r.tilt_tan});
    const double axis = double{r.tilt_azimuth} + pi;
    const double ax = std::cos(axis);
    const double ay = std::sin(axis);
    const double c = std::cos(tilt);
    const double s = std::sin(tilt);
    const double matrix[3][3] = {{c + ax * ax * (1 - c), ax * ay * (1 - c), ay * s},
                                 {ax * ay * (1 - c), c + ay * ay * (1 - c), -ax * s},
                                 {-ay * s, ax * s, c}};
    std::memcpy(m, matrix, sizeof(m));
  }

  double Radius(double a) const {
    return a + record.k[0] * std::pow(a, 3) + record.k[1] * std::pow(a, 5) +
           record.k[2] * std::pow(a, 7) + record.k[3] * std::pow(a, 9);
  }

  std::array<double, 3> Direction(int row, int col) const {
    const int bin_x = record.binning / 16;
    const int bin_y = record.binning % 16;
    const double py = (288 - record.rows) / 2 * bin_y + 1 + row * bin_y;
    const double px = (288 - record.cols) / 2 * bin_x + 1 + col * bin_x;
    const double yn = (288.0 * bin_y - 1.0 - py - record.cy) / record.f;
    const double xn = (px - record.cx) / record.f;
    double turned[3];
    for (int i = 0; i < 3; ++i) turned[i] = m[i][0] * xn + m[i][1] * yn;
    // Along the line from (0, 0, 1) through the turned point, down to the plane of height 0.
    const double along = 1.0 / (1.0 - turned[2]);
    const double u = along * turned[0];
    const double v = along * turned[1];
    const double r = std::hypot(u, v);
    double low = 0.0;
    double high = 750.0 / record.f;
    for (int step = 0; step < 60; ++step) {
      const double middle = (low + high) / 2;
      (Radius(middle) < r ? low : high) = middle;
    }
    return {std::cos(low), -std::sin(low) * u / r, -std::sin(low) * v / r};
  }

  QndrAngleDatRecord record;
  double m[3][3];
};

// Largest difference of any component of any pixel.
double LargestDifference(const QndrAngleDatRecord& record) {
  const AngleCalibGrid grid = GridOf(record);
  const DoubleCamera camera(record);
  double largest = 0.0;
  int compared = 0;
  for (int row = 0; row < grid.rows; row += 5) {
    for (int col = 0; col < grid.cols; col += 7) {
      const std::array<double, 3> want = camera.Direction(row, col);
      const Triple raw = Entry(grid, grid.xyz, row, col);
      const Triple unit = Entry(grid, grid.unit_xyz, row, col);
      for (std::size_t k = 0; k < 3; ++k) {
        largest = std::max({largest, std::fabs(raw[k] - want[k]), std::fabs(unit[k] - want[k])});
      }
      ++compared;
    }
  }
  EXPECT_GT(compared, 1000);
  return largest;
}

// Straight lines between tabulated angles 0.001 apart err by at most 1.25e-7 times the curvature
// (below 1 here), single precision by a few times 6e-8 in each of some ten operations.
constexpr double kTolerance = 2e-6;

TEST(AngleGrid, EqualsTheModelInDoubleWithLensAndTilt) {
  EXPECT_LT(LargestDifference(LensRecord()), kTolerance);
}

TEST(AngleGrid, EqualsTheModelInDoubleForOtherTiltsAndBinnings) {
  QndrAngleDatRecord record = LensRecord();
  record.tilt_azimuth = -4.0F;
  EXPECT_LT(LargestDifference(record), kTolerance);
  record.tilt_tan = 0.2F;
  record.tilt_azimuth = 12.5F;
  EXPECT_LT(LargestDifference(record), kTolerance);
  record = LensRecord();
  record.binning = 0x21;  // one sensor pixel to a row step
  record.cy = 270.0F;
  EXPECT_LT(LargestDifference(record), kTolerance);
}

TEST(AngleGrid, TakesItsShapeFromTheRecord) {
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 3;
  record.cols = 5;
  const AngleCalibGrid grid = GridOf(record);
  EXPECT_TRUE(grid.valid);
  EXPECT_EQ(grid.rows, 3);
  EXPECT_EQ(grid.cols, 5);
  EXPECT_EQ(grid.xyz.size(), 45U);
  EXPECT_EQ(grid.unit_xyz.size(), 45U);
}

TEST(AngleGrid, ThePrincipalPointKeepsItsOddDirection) {
  const AngleCalibGrid grid = GridOf(PlainRecord());
  EXPECT_EQ(Entry(grid, grid.xyz, 144, 144), kThirdAxis);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 144, 144), kThirdAxis);
  // Its neighbours look along x, with y to the left and z upward: the row axis runs downward.
  const Triple right = Entry(grid, grid.xyz, 144, 145);
  EXPECT_GT(right[0], 0.99F);
  EXPECT_LT(right[1], 0.0F);
  EXPECT_EQ(right[2], 0.0F);
  const Triple below = Entry(grid, grid.xyz, 145, 144);
  EXPECT_EQ(below[1], 0.0F);
  EXPECT_GT(below[2], 0.0F);
}

TEST(AngleGrid, WithoutTiltTheAzimuthDoesNotMatter) {
  const AngleCalibGrid plain = GridOf(PlainRecord());
  for (float azimuth : {0.3F, -2.0F, 100.0F}) {
    QndrAngleDatRecord record = PlainRecord();
    record.tilt_azimuth = azimuth;
    ASSERT_NO_FATAL_FAILURE(ExpectSameGrid(plain, GridOf(record))) << azimuth;
  }
}

TEST(AngleGrid, WithoutTiltAndDistortionTheRadiusIsTheAngle) {
  const AngleCalibGrid grid = GridOf(PlainRecord());
  for (int steps : {1, 10, 75}) {  // two sensor pixels each
    const double angle = 2.0 * steps / 300.0;
    const Triple ray = Entry(grid, grid.xyz, 144, 144 + steps);
    EXPECT_NEAR(ray[0], std::cos(angle), 3e-7) << steps;
    EXPECT_NEAR(ray[1], -std::sin(angle), 3e-7) << steps;
    EXPECT_EQ(ray[2], 0.0F);
  }
}

TEST(AngleGrid, ANegativeTiltIsThePositiveOneTurnedByHalfACircle) {
  QndrAngleDatRecord negative = LensRecord();
  negative.tilt_tan = -negative.tilt_tan;
  QndrAngleDatRecord turned = LensRecord();
  turned.tilt_azimuth += 3.1415927F;
  ExpectSameGrid(GridOf(negative), GridOf(turned));
}

TEST(AngleGrid, APrincipalPointWithinTwentyRowsOfTheMiddleIsUsedAsItIs) {
  QndrAngleDatRecord record = PlainRecord();
  record.cy = 280.0F;  // 575 - (1 + 2 * 147)
  AngleCalibGrid grid = GridOf(record);
  EXPECT_EQ(Entry(grid, grid.xyz, 147, 144), kThirdAxis);
  record.cy = 268.0F;  // exactly twenty
  record.rows = 216;   // rows begin 36 steps later
  grid = GridOf(record);
  EXPECT_EQ(Entry(grid, grid.xyz, 117, 144), kThirdAxis);
  record.cy = 308.0F;
  grid = GridOf(record);
  EXPECT_EQ(Entry(grid, grid.xyz, 97, 144), kThirdAxis);
}

TEST(AngleGrid, APrincipalPointFartherOutIsMovedByTheCroppedRowsAndColumns) {
  QndrAngleDatRecord cropped = PlainRecord();
  cropped.rows = 216;
  cropped.cols = 256;
  cropped.cx = 257.0F;
  cropped.cy = 200.0F;
  QndrAngleDatRecord full = cropped;
  full.cx = 289.0F;
  full.cy = 272.0F;
  ExpectSameGrid(GridOf(cropped), GridOf(full));
  cropped.cy = 266.0F;  // the first even row beyond twenty: stands for 338
  const AngleCalibGrid grid = GridOf(cropped);
  EXPECT_EQ(Entry(grid, grid.xyz, 82, 128), kThirdAxis);
  // The least beyond twenty, with more rows than the sensor has: moved by -12, where the spacing of
  // floats is the same.
  cropped.rows = 300;
  cropped.cy = std::nextafter(308.0F, kInf);
  full.rows = 300;
  full.cy = std::nextafter(296.0F, kInf);
  ExpectSameGrid(GridOf(cropped), GridOf(full));
}

TEST(AngleGrid, TheGridsPlaceOnTheSensorIsTruncated) {
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 217;  // 71 / 2 = 35 rows left out
  AngleCalibGrid grid = GridOf(record);
  EXPECT_EQ(Entry(grid, grid.xyz, 144 - 35, 144), kThirdAxis);
  record.rows = 291;  // -3 / 2 = -1
  grid = GridOf(record);
  EXPECT_EQ(Entry(grid, grid.xyz, 145, 144), kThirdAxis);
}

TEST(AngleGrid, PixelsBeyondTheTableHaveNoDirection) {
  QndrAngleDatRecord record = PlainRecord();
  record.k[0] = -0.5F;  // the curve turns back at an angle of 0.82 and a radius of 0.544
  const AngleCalibGrid grid = GridOf(record);
  // Column 144 + n stands 2 n / 300 from the axis: 0.54 and 0.5467.
  EXPECT_NE(Entry(grid, grid.xyz, 144, 144 + 81), kZero);
  EXPECT_EQ(Entry(grid, grid.xyz, 144, 144 + 82), kZero);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 144, 144 + 82), kThirdAxis);
  EXPECT_EQ(Entry(grid, grid.xyz, 0, 0), kZero);
}

TEST(AngleGrid, ALargestRadiusBelowThePixelsLeavesThemOut) {
  // Width and height 0: far_x = cx = 1, far_y = cy = 288 - 1, so that r_max is about 2.99, while
  // every pixel has r = hypot(0, (-1 - 1 - 287) / f).
  QndrAngleDatRecord record = PlainRecord();
  record.binning = 0x00;
  record.rows = 2;
  record.cols = 2;
  record.cx = 1.0F;
  record.cy = 287.0F;
  record.f = 96.0F;  // r = 3.01, inside the table, which reaches 7.8
  AngleCalibGrid grid = GridOf(record);
  for (int pixel = 0; pixel < 4; ++pixel) {
    EXPECT_EQ(Entry(grid, grid.xyz, pixel / 2, pixel % 2), kZero);
  }
  record.f = 97.0F;  // r = 2.98
  grid = GridOf(record);
  for (int pixel = 0; pixel < 4; ++pixel) {
    EXPECT_NE(Entry(grid, grid.xyz, pixel / 2, pixel % 2), kZero);
  }
}

TEST(AngleGrid, NanInThePrincipalPointGivesNoDirections) {
  for (int which = 0; which < 4; ++which) {
    QndrAngleDatRecord record = PlainRecord();
    if (which == 0) record.cx = kNan;
    if (which == 1) record.cy = kNan;
    if (which == 2) record.tilt_tan = kNan;
    if (which == 3) {
      record.tilt_tan = 0.1F;
      record.tilt_azimuth = kInf;
    }
    const AngleCalibGrid grid = GridOf(record);
    EXPECT_TRUE(std::all_of(grid.xyz.begin(), grid.xyz.end(), [](float v) { return v == 0.0F; }))
        << which;
    EXPECT_EQ(Entry(grid, grid.unit_xyz, 10, 10), kThirdAxis);
  }
}

TEST(AngleGrid, AnyBytesGiveAGridOrAText) {
  // One field at a time takes a value that no sensor has.
  const float odd[] = {0.0F, -0.0F, 1e-45F, -1e30F, 3e38F, kInf, -kInf, kNan};
  int built = 0;
  int failed = 0;
  for (std::size_t offset = 10; offset < 46; offset += 4) {
    for (float value : odd) {
      QndrAngleDatRecord record = LensRecord();
      record.rows = 20;
      record.cols = 30;
      std::uint8_t bytes[78];
      std::memcpy(bytes, &record, 78);
      std::memcpy(bytes + offset, &value, 4);
      AngleCalibGrid grid;
      std::string error;
      const bool ok = load_angle_calib_from_dat_bytes(bytes, 78, grid, &error);
      EXPECT_EQ(ok, error.empty());
      EXPECT_EQ(grid.xyz.size(), ok ? 1800U : 0U);
      ++(ok ? built : failed);
    }
  }
  EXPECT_GT(built, 0);
  EXPECT_GT(failed, 0);
  EXPECT_EQ(built + failed, 72);
}

AngleCalibGrid UsedGrid() {
  AngleCalibGrid grid;
  grid.rows = 1;
  grid.cols = 1;
  grid.xyz = {1.0F, 2.0F, 3.0F};
  grid.unit_xyz = {1.0F, 2.0F, 3.0F};
  grid.valid = true;
  return grid;
}

void ExpectEmpty(const AngleCalibGrid& grid) {
  EXPECT_EQ(grid.rows, 0);
  EXPECT_EQ(grid.cols, 0);
  EXPECT_TRUE(grid.xyz.empty());
  EXPECT_TRUE(grid.unit_xyz.empty());
  EXPECT_FALSE(grid.valid);
}

// The text of a record that is refused; the grid must come back empty, with or without a text.
std::string RefusalOf(const QndrAngleDatRecord& record) {
  AngleCalibGrid grid = UsedGrid();
  EXPECT_FALSE(gen_angle_xyz_from_dat_record(record, grid, nullptr));
  ExpectEmpty(grid);
  grid = UsedGrid();
  std::string error;
  EXPECT_FALSE(gen_angle_xyz_from_dat_record(record, grid, &error));
  ExpectEmpty(grid);
  return error;
}

TEST(AngleRecord, SizesBelow78AreRefusedAndBytesBehindAreIgnored) {
  std::vector<std::uint8_t> bytes(79, 0xEE);
  const QndrAngleDatRecord record = LensRecord();
  std::memcpy(bytes.data(), &record, 78);
  AngleCalibGrid grid = UsedGrid();
  std::string error;
  EXPECT_FALSE(load_angle_calib_from_dat_bytes(bytes.data(), 77, grid, &error));
  EXPECT_EQ(error, "角度标定内存块长度不足 (need 78)");
  ExpectEmpty(grid);
  grid = UsedGrid();
  EXPECT_FALSE(load_angle_calib_from_dat_bytes(nullptr, 78, grid, nullptr));
  ExpectEmpty(grid);
  EXPECT_TRUE(load_angle_calib_from_dat_bytes(bytes.data(), 78, grid, nullptr));
  ExpectSameGrid(grid, GridOf(record));
  EXPECT_TRUE(load_angle_calib_from_dat_bytes(bytes.data(), 79, grid, &error));
  ExpectSameGrid(grid, GridOf(record));
}

TEST(AngleRecord, AFailureOfTheComputationIsPassedOn) {
  QndrAngleDatRecord record = PlainRecord();
  record.f = -1.0F;
  AngleCalibGrid grid = UsedGrid();
  std::string error;
  EXPECT_FALSE(load_angle_calib_from_dat_bytes(reinterpret_cast<const std::uint8_t*>(&record), 78,
                                               grid, &error));
  EXPECT_EQ(error, kParameterText);
  ExpectEmpty(grid);
}

TEST(AngleRecord, NoRowsNoColumnsOrNoFocalLengthAreRefused) {
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 0;
  EXPECT_EQ(RefusalOf(record), kParameterText);
  record = PlainRecord();
  record.cols = 0;
  EXPECT_EQ(RefusalOf(record), kParameterText);
  for (float f : {0.0F, -0.0F, -300.0F, -kInf}) {
    record = PlainRecord();
    record.f = f;
    EXPECT_EQ(RefusalOf(record), kParameterText) << f;
  }
}

TEST(AngleRecord, ACurveWithoutTwoPointsIsRefused) {
  QndrAngleDatRecord record = PlainRecord();
  for (float f : {750001.0F, kInf, kNan, 1e-30F, 1e-45F, 0.07F}) {
    record.f = f;
    EXPECT_EQ(RefusalOf(record), kCurveText) << f;
  }
  record = PlainRecord();
  record.k[0] = kNan;
  EXPECT_EQ(RefusalOf(record), kCurveText);
  record.k[0] = -kInf;
  EXPECT_EQ(RefusalOf(record), kCurveText);
}

TEST(AngleCalib, AnAbsurdGridSizeIsRefusedBeforeMemoryIsTaken) {
  QndrAngleDatRecord record = PlainRecord();
  record.rows = 65535;
  record.cols = 65535;
  EXPECT_EQ(RefusalOf(record), "角度标定参数无效 (rows/cols/f)");
}

TEST(AngleNormalisation, BrokenAndEmptyDirectionsAreKeptApart) {
  AngleCalibGrid grid;
  grid.rows = 2;
  grid.cols = 3;
  grid.valid = true;
  const Triple raw[6] = {{3.0F, 0.0F, 4.0F}, {0.0F, 0.0F, 0.0F},     {kNan, 0.0F, 0.0F},
                         {0.0F, kInf, 0.0F}, {0.0F, 0.98e-8F, 0.0F}, {0.0F, -1.02e-8F, 0.0F}};
  grid.xyz.resize(18);
  for (std::size_t i = 0; i < 6; ++i) {
    for (std::size_t plane = 0; plane < 3; ++plane) grid.xyz[plane * 6 + i] = raw[i][plane];
  }
  angle_calib_detail::NormaliseDirections(grid);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 0, 0), (Triple{0.6F, 0.0F, 0.8F}));
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 0, 1), kThirdAxis);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 0, 2), kZero);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 1, 0), kZero);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 1, 1), kThirdAxis);
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 1, 2), (Triple{0.0F, -1.0F, 0.0F}));
  angle_calib_detail::NormaliseDirections(grid);  // from the raw directions again
  EXPECT_EQ(Entry(grid, grid.unit_xyz, 0, 0), (Triple{0.6F, 0.0F, 0.8F}));
}

TEST(AngleNormalisation, AnEmptyGridStaysEmpty) {
  AngleCalibGrid grid;
  grid.unit_xyz = {1.0F};
  angle_calib_detail::NormaliseDirections(grid);
  EXPECT_TRUE(grid.unit_xyz.empty());
}

}  // namespace
}  // namespace kerul::lidar
