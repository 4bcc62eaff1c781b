// The debug line about one echo of the traced pixel.
#pragma once

#include <cstdint>
#include <ostream>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Where the echo stands: pixel, index of the point in its packet (0..35), echo slot.
struct EchoMetricsPlace {
  int row;
  int col;
  int point_index;
  int echo;
};

// Writes the "[DEBUG] LidarEchoMetrics" line and a ruler of 100 dashes. `reflectivity_out` is the
// point's byte after the distance, as published.
void PrintEchoMetrics(std::ostream& out, const EchoMetricsPlace& place, const LidarEcho& echo,
                      std::uint8_t reflectivity_out);

}  // namespace kerul::lidar
