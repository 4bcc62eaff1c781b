// Point clouds in the formats that common programs open: PCD and PLY, both binary and
// little-endian. LAS stands in las_file.h.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/cloud_point.h"

namespace kerul::lidar {

// Fields of a point, in this order: x, y, z, intensity (float), row, col (16 bits), and with
// kPixelAndEcho also echo, ground (8 bits).
enum class PointFields : std::uint8_t { kPixel, kPixelAndEcho };

enum class PcdNumbers : std::uint8_t {
  kPacked,  // each field in its own width
  kFloats,  // all fields as floats, for viewers that read no unsigned fields
};

// The whole file. Any number of points, also none; numbers that are not finite are kept.
std::vector<char> EncodePcd(std::span<const CloudPoint> points, PointFields fields,
                            PcdNumbers numbers = PcdNumbers::kPacked);
std::vector<char> EncodePly(std::span<const CloudPoint> points, PointFields fields);

}  // namespace kerul::lidar
