// The table part of the compiled-in configuration.
#pragma once

#include <cstdint>
#include <vector>

namespace kerul::lidar {

// Curves for all sensors, and places for those that differ from sensor to sensor. The latter are
// empty in the default build, because they come from the sensor itself. Lengths are what MakeConfig
// fills in; "when set" is what bring-up then requires.
struct DefaultTables {
  std::vector<float> shot_times;  // 48: laser shots by group_id (miniflash row)
  std::vector<float>
      high_threshold_cogh_in;  // 510: height measured at the high threshold, ascending
  std::vector<float> high_threshold_cogh_out;   // 510: height it maps to, never falling
  std::vector<float> env_cogh;                  // 1024: environment gain by noise, low threshold
  std::vector<float> env_cogh_high;             // 1024: the same, high threshold
  std::vector<float> env_cogt;                  // 0, 4 when set: range compensation parameters
  std::vector<std::uint16_t> detect_threshold;  // 513: detection level by noise
  std::vector<float> cogh_efficiant;  // 600: 100 rows by range in 0.1 m x 6 columns by pixel row
  std::vector<float> cogw_a;          // 641: low width curve by peak
  std::vector<float> cogw_b;          // 641: gate width curve by peak
  std::vector<float> cogw_c;          // 641: high width curve by peak
  std::vector<float> psf_same_block;  // 32: spill by distance in half pixels
  std::vector<float> psf_adjacent_block;  // 32
  std::vector<float> psf_diagonal_block;  // 32
  std::vector<float> power_template;      // 36: 6 x 6 row-major, a real target's power in a block
  std::vector<float> retro_filter;        // 0, 31 when set: smallest reflectivity by range in 0.1 m
  std::vector<float> dist_curve;          // 0, 512 when set: range correction by height
  std::vector<float> dist_curve_high;     // 0, 512 when set: the same, high threshold
  std::vector<float> dist_offset;         // 0, 82944 when set: per pixel, tile order
  std::vector<float> retro_curve;         // 0, 512 when set: log2 of the power by height
  std::vector<float> retro_scale;         // 0, 82944 when set: per pixel, tile order
  std::vector<std::uint8_t> angle_dat;    // 0, 78 when set: one camera model record
};

// The default build's tables: known values unchanged, curves through their known points
// (table_curves.h), sensor-specific tables empty. Depends on constant expressions alone, so it may
// run during static initialisation.
DefaultTables MakeDefaultTables();

}  // namespace kerul::lidar
