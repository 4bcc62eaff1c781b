// The reader of frame export files, and what the tool makes of a file that was read.
#include <cmath>
#include <cstring>
#include <sstream>

#include "byte_input.h"
#include "frame_export_info/export_file_reader.h"
#include "frame_export_info/export_picture.h"
#include "frame_export_info/export_points.h"
#include "frame_export_info/export_summary.h"

using namespace kerul::lidar;
using fuzz::Require;

namespace {

constexpr int kDrawnPixels = 1 << 14;  // larger pictures take up the fuzzer's time

// An accepted file holds its pixels once each, in grid order, and nothing of it is lost.
void CheckRecords(const ExportFile& file, std::span<const std::uint8_t> bytes) {
  Require(bytes.size() == kExportHeaderBytes + kExportRecordBytes * file.records.size(),
          "every byte of an accepted file was read");
  long last = -1;
  std::size_t returns = 0;
  for (std::size_t i = 0; i < file.records.size(); ++i) {
    const ExportRecord& record = file.records[i];
    Require(record.row < file.header.height && record.col < file.header.width, "pixel in grid");
    const long place = long{record.row} * file.header.width + record.col;
    Require(place > last, "pixels in grid order");
    last = place;
    if (record.range > 0.0F) ++returns;
    Require(std::memcmp(&record, bytes.data() + kExportHeaderBytes + kExportRecordBytes * i,
                        kExportRecordBytes) == 0,
            "record as it stands in the file");
  }
  Require(returns == file.header.return_count, "returns as the header counts them");
}

void UseFile(const ExportFile& file) {
  const ExportSummary summary = Summarize(file);
  std::ostringstream text;
  PrintSummary("file", file, summary, text);
  Require(!text.str().empty(), "a summary");
  std::string error;
  if (std::int64_t{file.header.height} * file.header.width <= kDrawnPixels) {
    ExportPicture picture;
    Require(DrawExport(file, summary, picture, error) == error.empty(), "picture or reason");
  }
  AngleCalibGrid grid;
  grid.rows = 4;
  grid.cols = 6;
  grid.xyz.assign(std::size_t{3} * 4 * 6, 0.5F);
  grid.unit_xyz = grid.xyz;
  grid.valid = true;
  ExportPoints points;
  if (!MakePoints(file, grid, points, error)) return;
  Require(points.points.size() + points.left_out == file.records.size(), "every record counted");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ExportFile file;
  std::string error;
  if (!ParseExportFile({data, size}, file, error)) {
    Require(!error.empty() && file.records.empty(), "a reason and nothing else");
    return 0;
  }
  CheckRecords(file, {data, size});
  UseFile(file);
  return 0;
}
