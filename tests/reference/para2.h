// The sensor's calibration blobs and the direction grid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "calibration/angle_calib.h"

namespace reference {

// CRC-32, polynomial 0x04C11DB7, first value all ones, most significant bit first, no final
// inversion. Nothing to sum gives 0.
std::uint32_t Para2Crc(const std::uint8_t* data, std::size_t size);

// The identifier in bytes 0..19 of a head of at least 20 bytes.
std::string HeadLidarId(const std::vector<std::uint8_t>& head);

struct MainTables {
  std::vector<float> dist_curve;
  std::vector<float> dist_curve_high;
  std::vector<float> dist_offset;
  std::vector<float> retro_curve;
  std::vector<float> retro_scale;
};

// `main` holds at least 168960 bytes; throws std::runtime_error otherwise.
MainTables UnpackMain(const std::vector<std::uint8_t>& main, int tile_pixels, int tile_columns);

// Direction grid of the 78-byte camera model. Not valid, with no directions, on failure.
kerul::lidar::AngleCalibGrid AngleGrid(const std::uint8_t* data, std::size_t size);

}  // namespace reference
