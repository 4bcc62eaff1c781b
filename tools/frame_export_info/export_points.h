// Points in space from the records of an export file and the sensor's directions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "calibration/angle_calib.h"
#include "frame_export_info/export_file_reader.h"
#include "support/cloud_point.h"

namespace kerul::lidar {

// The sensor's own axes, metres: x along the optical axis. Intensity is the record's reflectivity;
// a file tells neither echo nor ground.
struct ExportPoints {
  std::vector<CloudPoint> points;
  std::size_t left_out = 0;  // records without a finite range above 0 or without a direction
};

// Multiplies each range with the direction of its pixel. In a doubled file pixel (row, col) looks
// along (row / 2, col / 2) of `grid`: half positions take the mean of the two or four directions
// around them, at length 1. False, with the reason in `error`, when the grid does not fit the file.
bool MakePoints(const ExportFile& file, const AngleCalibGrid& grid, ExportPoints& result,
                std::string& error);

}  // namespace kerul::lidar
