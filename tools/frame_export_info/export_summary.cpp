#include "frame_export_info/export_summary.h"

#include <algorithm>
#include <cmath>
#include <ostream>

namespace kerul::lidar {
namespace {

void Add(float value, ValueSummary& summary) noexcept {
  if (!std::isfinite(value)) return;
  summary.min = summary.count == 0 ? value : std::min(summary.min, value);
  summary.max = summary.count == 0 ? value : std::max(summary.max, value);
  ++summary.count;
  // A running mean: no sum that grows out of the number range.
  summary.mean += (static_cast<double>(value) - summary.mean) / static_cast<double>(summary.count);
}

void PrintValues(const char* title, const ValueSummary& values, std::ostream& out) {
  out << title;
  if (values.count == 0) {
    out << "none\n";
    return;
  }
  out << "min " << values.min << ", mean " << values.mean << ", max " << values.max << '\n';
}

}  // namespace

ExportSummary Summarize(const ExportFile& file) noexcept {
  ExportSummary summary;
  for (const ExportRecord& record : file.records) {
    if (!std::isfinite(record.range)) {
      ++summary.not_finite;
      continue;
    }
    Add(record.range, summary.range);
    Add(record.reflectivity, summary.reflectivity);
  }
  return summary;
}

void PrintSummary(const std::string& path, const ExportFile& file, const ExportSummary& summary,
                  std::ostream& out) {
  const ExportHeader& header = file.header;
  out << "file:              " << path << '\n'
      << "mode:              " << ExportModeName(header.mode) << '\n'
      << "grid:              " << header.height << " rows x " << header.width << " columns\n"
      << "frame id:          " << header.frame_id << '\n'
      << "sequence:          " << header.sequence << '\n'
      << "returns:           " << header.return_count << '\n'
      << "ranges not finite: " << summary.not_finite << '\n';
  PrintValues("range [m]:         ", summary.range, out);
  PrintValues("reflectivity:      ", summary.reflectivity, out);
}

}  // namespace kerul::lidar
