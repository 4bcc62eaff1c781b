// The files that frame_export_info writes: tables and point clouds. Each function gives false, with
// the reason in `error`, when the file cannot be written in full.
#pragma once

#include <span>
#include <string>

#include "frame_export_info/export_file_reader.h"
#include "frame_export_info/export_points.h"

namespace kerul::lidar {

// One line for each record, NaN included: row,col,range_m,reflectivity. Numbers have enough digits
// to read back the same value.
bool WriteCsv(const std::string& path, std::span<const ExportRecord> records, std::string& error);

// Binary, fields x y z intensity row col.
bool WritePcd(const std::string& path, std::span<const ExportPoint> points, std::string& error);

// Binary little-endian, the same fields.
bool WritePly(const std::string& path, std::span<const ExportPoint> points, std::string& error);

}  // namespace kerul::lidar
