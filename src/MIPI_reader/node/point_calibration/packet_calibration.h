// The calibration that every packet's points go through before they reach the frame, in the order
// of this file. Each step walks the echo slots up to LidarPoint::echo_num; none sees the frame.
#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "config/high_refl_check.h"

namespace kerul::lidar {

// Metres of range per nanosecond of flight.
inline constexpr float kMetresPerNanosecond = 0.14989623F;
inline constexpr int kCurveEntries = 512;         // curves by pulse height
inline constexpr int kPixelTableEntries = 82944;  // 288 x 288 pixels in tile order

// Index of a pixel in the tile-ordered tables: tile by tile (48 to a row), the 6 x 6 pixels of a
// tile column by column. Truncating division; a pixel outside can give the index of another one or
// one outside the tables. -1000000 <= row, col <= 1000000, of which a packet reaches 0..1850.
constexpr int TileOrderIndex(int row, int col) noexcept {
  const int tile = (row / 6) * 48 + col / 6;
  return tile * 36 + (col % 6) * 6 + row % 6;
}

// Entry of a pixel in a tile-ordered table, the nearest one for a pixel outside (such pixels drop
// out when the points are copied into the frame). `table` must not be empty.
inline float PixelTableEntry(std::span<const float> table, int row, int col) noexcept {
  const int last = static_cast<int>(table.size()) - 1;
  return table[static_cast<std::size_t>(std::clamp(TileOrderIndex(row, col), 0, last))];
}

// Compensation of pulse height and range for the background light.
struct EnvCalib {
  std::vector<float> env_cogh;       // gain by noise, for an echo without a valid cogw_high
  std::vector<float> env_cogh_high;  // the same for an echo with one
  std::vector<float> env_cogt;       // 4 entries or none
  bool has_cogt = false;
  float bias = 0.0F;  // added to the height before the compensation
  float cogt_a = 0.0F;
  float cogt_b = 0.0F;
  float cogt_c = 0.0F;
  float cogt_d = 0.0F;

  // Throws std::runtime_error for an empty cogh table or an env_cogt of neither 0 nor 4 entries.
  EnvCalib(std::vector<float> cogh, std::vector<float> cogh_high, std::vector<float> cogt,
           float height_bias);
};

// Range correction by pulse height and pixel.
struct DistCalib {
  float scale = kMetresPerNanosecond;
  std::vector<float> curve;       // 512, low threshold
  std::vector<float> offset;      // 82944, tile order; 0 marks a pixel without calibration
  std::vector<float> curve_high;  // 512 or empty, for echoes with a valid cogw_high
  bool has_curve_high = false;

  // Throws std::runtime_error for wrong sizes; for curve or offset it prints the two sizes first.
  DistCalib(std::vector<float> low_curve, std::vector<float> pixel_offset,
            std::vector<float> high_curve);
};

// Maps heights measured at the high threshold to heights at the low one.
struct HighThresholdMap {
  std::vector<float> cogh_in;  // ascending
  std::vector<float> cogh_out;

  // Throws std::runtime_error for fewer than 2 entries or different lengths.
  HighThresholdMap(std::vector<float> in, std::vector<float> out);
};

// Reflectivity and power from pulse height, range and pixel.
struct RetroCalib {
  float ref_distance = kMetresPerNanosecond;
  float ref_offset = 6.0F;
  std::vector<float> retro_curve;  // 512: log2 of the power at a pulse height
  std::vector<float> retro_scale;  // 82944, tile order; 0 marks a pixel without calibration
  HighReflCheck high_refl_check;
  std::vector<float> cogh_efficiant;  // 600: 100 rows by range in 0.1 m x 6 by pixel row
  bool cogh_efficiant_valid = false;
  std::vector<float> retro_filter;  // 31: smallest acceptable reflectivity by range in 0.1 m
  bool retro_filter_valid = false;

  // Throws std::runtime_error for a curve or scale of the wrong size, after printing both sizes.
  // The two optional tables are valid when they have 600 and 31 entries.
  RetroCalib(std::vector<float> curve, std::vector<float> scale, const HighReflCheck& check,
             std::vector<float> efficiant, std::vector<float> filter);

  // Fills refl_raw and power, erases echoes without calibration or too weak for their range.
  void calib_points(std::vector<LidarPoint>& points) const;
};

void CompensateEnvironment(const EnvCalib& calib, std::span<LidarPoint> points) noexcept;
void CalibrateRange(const DistCalib& calib, std::span<LidarPoint> points) noexcept;
void MapHighThresholdHeights(const HighThresholdMap& map, std::span<LidarPoint> points) noexcept;
// Sets highRefl of echo 0 and afterPulse of echo 1 by the four rules. `check.enable` is the
// caller's business.
void CheckHighReflectivity(const HighReflCheck& check, std::span<LidarPoint> points) noexcept;

}  // namespace kerul::lidar
