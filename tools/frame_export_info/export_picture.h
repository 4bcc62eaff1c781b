// Draws an export file: ranges on the left, reflectivities on the right, a black line between.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame_export_info/export_file_reader.h"
#include "frame_export_info/export_summary.h"

namespace kerul::lidar {

// Pixels of the largest grid that is drawn. Sensor grids are far below it.
inline constexpr int kMaxPicturePixels = 4096 * 4096;

struct ExportPicture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;  // rows from the top
};

// Colours run from the smallest to the largest finite range, and over 0..255 for reflectivities;
// pixels without a record and values that are not finite stay black. False, with the reason in
// `error`, for a grid that has no pixel or too many.
bool DrawExport(const ExportFile& file, const ExportSummary& summary, ExportPicture& picture,
                std::string& error);

}  // namespace kerul::lidar
