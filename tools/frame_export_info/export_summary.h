// What a frame export file holds, in figures.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "frame_export_info/export_file_reader.h"

namespace kerul::lidar {

// Over the values that are finite.
struct ValueSummary {
  std::size_t count = 0;
  float min = 0.0F;
  float max = 0.0F;
  double mean = 0.0;
};

struct ExportSummary {
  ValueSummary range;          // metres
  ValueSummary reflectivity;   // of the records with a finite range
  std::size_t not_finite = 0;  // records whose range is NaN or infinite
};

ExportSummary Summarize(const ExportFile& file) noexcept;

void PrintSummary(const std::string& path, const ExportFile& file, const ExportSummary& summary,
                  std::ostream& out);

}  // namespace kerul::lidar
