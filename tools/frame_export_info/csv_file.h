// The records of an export file as a table.
#pragma once

#include <span>
#include <string>

#include "frame_export_info/export_file_reader.h"

namespace kerul::lidar {

// One line for each record, NaN included: row,col,range_m,reflectivity. Numbers have enough digits
// to read back the same value.
std::string FormatCsv(std::span<const ExportRecord> records);

}  // namespace kerul::lidar
