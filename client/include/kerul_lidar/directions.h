// Which way each pixel looks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar {

// Unit directions of 216 x 288 pixels, row by row, in the sensor's frame: x along the optical axis,
// y to the left, z up. Row 0 is the lowest of the picture. All zero where the camera model gives no
// direction.
struct Directions {
  std::string origin;  // where they come from, for messages
  std::vector<std::array<float, 3>> unit;
};

// From `<calib_dir>/Lidar-*_angle_calib.dat`, else from the record inside `<calib_dir>/*_head.bin`,
// else from the same two below `<calib_dir>/para_read`. So it takes a directory for the node's
// --cali_path and the node's cache of a sensor. Of several matching files the first by name is
// taken. False with the reason in `error`.
bool LoadDirections(const std::string& calib_dir, Directions& directions, std::string& error);

// From the bytes of an angle record, 78 or more. `directions.origin` is the caller's and begins
// `error`.
bool MakeDirections(const std::uint8_t* record, std::size_t size, Directions& directions,
                    std::string& error);

}  // namespace kerul::lidar
