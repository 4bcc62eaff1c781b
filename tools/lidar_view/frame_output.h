// Writes what was asked for of one frame.
#pragma once

#include <string>

#include "config/transform_param.h"
#include "kerul_lidar/frame_collector.h"
#include "lidar_view/directions.h"
#include "lidar_view/picture.h"
#include "support/point_files.h"

namespace kerul::lidar::view {

// Empty paths are not written.
struct FrameFiles {
  std::string png;
  std::string pcd;
  std::string ply;
  std::string las;
  PcdNumbers pcd_numbers = PcdNumbers::kPacked;
};

// Writes all files that it can. False with the failures in `error`, one a line.
bool WriteFrameFiles(const FrameFiles& files, const CollectedFrame& frame,
                     const Directions& directions, const TransformParam* mount,
                     const PictureOptions& options, std::string& error);

}  // namespace kerul::lidar::view
