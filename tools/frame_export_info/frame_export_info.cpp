#include "frame_export_info/frame_export_info.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <span>
#include <vector>

#include "calibration/angle_calib.h"
#include "files/regular_file.h"
#include "frame_export_info/csv_file.h"
#include "frame_export_info/export_file_reader.h"
#include "frame_export_info/export_picture.h"
#include "frame_export_info/export_points.h"
#include "frame_export_info/export_summary.h"
#include "support/las_file.h"
#include "support/output_file.h"
#include "support/png_file.h"
#include "support/point_files.h"

namespace kerul::lidar {
namespace {

// Which file a failure is about, and why.
struct Failure {
  std::string path;
  std::string reason;
};

bool LoadDirections(const std::string& path, AngleCalibGrid& grid, std::string& error) {
  std::vector<std::uint8_t> bytes;
  switch (ReadRegularFile(path, bytes)) {
    case FileFault::kNone:
      break;
    case FileFault::kNotRegular:
      error = "not a regular file";
      return false;
    default:
      error = std::string("cannot open: ") + std::strerror(errno);
      return false;
  }
  return load_angle_calib_from_dat_bytes(bytes.data(), std::min(bytes.size(), kAngleRecordBytes),
                                         grid, &error);
}

bool Write(const std::string& path, std::span<const char> bytes, Failure& failure) {
  if (WriteOutputFile(path, bytes, failure.reason)) return true;
  failure = {.path = path, .reason = "cannot write: " + failure.reason};
  return false;
}

bool WritePointFiles(const FrameExportInfoOptions& options, const ExportFile& file,
                     std::ostream& out, Failure& failure) {
  if (!options.WantsPoints()) return true;
  failure.path = options.calib;
  AngleCalibGrid grid;
  ExportPoints made;
  if (!LoadDirections(options.calib, grid, failure.reason)) return false;
  if (!MakePoints(file, grid, made, failure.reason)) return false;
  out << "points:            " << made.points.size() << ", left out " << made.left_out << '\n';
  constexpr PointFields kFields = PointFields::kPixel;
  if (!options.pcd.empty() &&
      !Write(options.pcd, EncodePcd(made.points, kFields, options.pcd_numbers), failure)) {
    return false;
  }
  if (!options.ply.empty() && !Write(options.ply, EncodePly(made.points, kFields), failure)) {
    return false;
  }
  return options.las.empty() || Write(options.las, EncodeLas(made.points, LasOptions{}), failure);
}

bool WritePicture(const std::string& path, const ExportFile& file, const ExportSummary& summary,
                  Failure& failure) {
  failure.path = path;
  ExportPicture picture;
  std::string reason;
  if (!DrawExport(file, summary, picture, failure.reason)) return false;
  if (WritePng(path, picture.width, picture.height, picture.rgb, reason)) return true;
  failure.reason = "cannot write: " + reason;
  return false;
}

bool Run(const FrameExportInfoOptions& options, std::ostream& out, Failure& failure) {
  failure.path = options.file;
  ExportFile file;
  if (!ReadExportFile(options.file, file, failure.reason)) return false;
  const ExportSummary summary = Summarize(file);
  PrintSummary(options.file, file, summary, out);
  if (!options.csv.empty() && !Write(options.csv, FormatCsv(file.records), failure)) return false;
  if (!options.png.empty() && !WritePicture(options.png, file, summary, failure)) return false;
  return WritePointFiles(options, file, out, failure);
}

}  // namespace

int RunFrameExportInfo(const FrameExportInfoOptions& options, std::ostream& out,
                       std::ostream& err) {
  if (options.calib.empty() && options.WantsPoints()) {
    err << "frame_export_info: PCD, PLY and LAS need the sensor's directions: give its 78-byte "
           "angle "
           "record with --calib (an export file holds ranges by pixel; --csv works without)\n";
    return 1;
  }
  Failure failure;
  if (Run(options, out, failure)) return 0;
  err << "frame_export_info: " << failure.path << ": " << failure.reason << '\n';
  return 1;
}

}  // namespace kerul::lidar
