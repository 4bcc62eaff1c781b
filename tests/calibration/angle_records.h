// A plain camera model, and access to the grid made from one.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "calibration/angle_calib.h"

namespace kerul::lidar {

inline constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInf = std::numeric_limits<float>::infinity();

// A receiver of 576 x 576 sensor pixels, two to a grid step, without distortion and tilt. Its
// principal point lies on grid pixel (row 144, column 144).
inline QndrAngleDatRecord PlainRecord() {
  QndrAngleDatRecord record{};
  record.binning = 0x22;
  record.rows = 288;
  record.cols = 288;
  record.f = 300.0F;
  record.cx = 289.0F;  // column j is at sensor column 1 + 2 j
  record.cy = 286.0F;  // row i is at 575 - (1 + 2 i)
  return record;
}

inline AngleCalibGrid GridOf(const QndrAngleDatRecord& record) {
  AngleCalibGrid grid;
  std::string error;
  EXPECT_TRUE(gen_angle_xyz_from_dat_record(record, grid, &error)) << error;
  return grid;
}

inline std::array<float, 3> Entry(const AngleCalibGrid& grid, const std::vector<float>& planes,
                                  int row, int col) {
  const auto size = static_cast<std::size_t>(grid.rows) * static_cast<std::size_t>(grid.cols);
  const std::size_t pixel = static_cast<std::size_t>(row) * static_cast<std::size_t>(grid.cols) +
                            static_cast<std::size_t>(col);
  return {planes.at(pixel), planes.at(size + pixel), planes.at(2 * size + pixel)};
}

using Triple = std::array<float, 3>;
inline constexpr Triple kZero{0.0F, 0.0F, 0.0F};
inline constexpr Triple kThirdAxis{0.0F, 0.0F, 1.0F};

}  // namespace kerul::lidar
