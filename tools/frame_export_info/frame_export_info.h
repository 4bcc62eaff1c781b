// Shows and converts one frame export file.
#pragma once

#include <iosfwd>
#include <string>

#include "support/point_files.h"

namespace kerul::lidar {

// Empty paths switch a step off.
struct FrameExportInfoOptions {
  std::string file;
  std::string calib;  // 78-byte angle record, needed for pcd, ply and las
  std::string csv;
  std::string pcd;
  std::string ply;
  std::string las;
  PcdNumbers pcd_numbers = PcdNumbers::kPacked;
  std::string png;

  bool WantsPoints() const noexcept { return !(pcd.empty() && ply.empty() && las.empty()); }
};

// Prints the summary to `out` and writes what is asked for. Gives the exit status: 0, or 1 with a
// line on `err`; what was written before the failure stays.
int RunFrameExportInfo(const FrameExportInfoOptions& options, std::ostream& out, std::ostream& err);

}  // namespace kerul::lidar
