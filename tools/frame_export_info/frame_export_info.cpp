#include "frame_export_info/frame_export_info.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <vector>

#include "calibration/angle_calib.h"
#include "files/regular_file.h"
#include "frame_export_info/export_file_reader.h"
#include "frame_export_info/export_picture.h"
#include "frame_export_info/export_points.h"
#include "frame_export_info/export_summary.h"
#include "frame_export_info/point_files.h"
#include "support/png_file.h"

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

bool WritePointFiles(const FrameExportInfoOptions& options, const ExportFile& file,
                     std::ostream& out, Failure& failure) {
  if (options.pcd.empty() && options.ply.empty()) return true;
  failure.path = options.calib;
  AngleCalibGrid grid;
  ExportPoints points;
  if (!LoadDirections(options.calib, grid, failure.reason)) return false;
  if (!MakePoints(file, grid, points, failure.reason)) return false;
  out << "points:            " << points.points.size() << ", left out " << points.left_out << '\n';
  failure.path = options.pcd;
  if (!options.pcd.empty() && !WritePcd(options.pcd, points.points, failure.reason)) return false;
  failure.path = options.ply;
  return options.ply.empty() || WritePly(options.ply, points.points, failure.reason);
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
  failure.path = options.csv;
  if (!options.csv.empty() && !WriteCsv(options.csv, file.records, failure.reason)) return false;
  if (!options.png.empty() && !WritePicture(options.png, file, summary, failure)) return false;
  return WritePointFiles(options, file, out, failure);
}

}  // namespace

int RunFrameExportInfo(const FrameExportInfoOptions& options, std::ostream& out,
                       std::ostream& err) {
  if (options.calib.empty() && !(options.pcd.empty() && options.ply.empty())) {
    err << "frame_export_info: PCD and PLY need the sensor's directions: give its 78-byte angle "
           "record with --calib (an export file holds ranges by pixel; --csv works without)\n";
    return 1;
  }
  Failure failure;
  if (Run(options, out, failure)) return 0;
  err << "frame_export_info: " << failure.path << ": " << failure.reason << '\n';
  return 1;
}

}  // namespace kerul::lidar
