#include "lidar_view/frame_output.h"

#include "kerul_lidar/point_payload.h"
#include "lidar_view/view_points.h"
#include "support/las_file.h"
#include "support/output_file.h"
#include "support/png_file.h"
#include "support/point_files.h"

namespace kerul::lidar::view {
namespace {

LasOptions LasOptionsOf(const CollectedFrame& frame) {
  const bool ground_known = (CarriedFields(frame.key.output_mode) & payload_field::kGround) != 0;
  return {.ground_known = ground_known, .timestamp_us = frame.last_timestamp_us};
}

}  // namespace

bool WriteFrameFiles(const FrameFiles& files, const CollectedFrame& frame,
                     const Directions& directions, const TransformParam* mount,
                     const PictureOptions& options, std::string& error) {
  const std::vector<CloudPoint> points = MakeViewPoints(frame, directions, mount);
  error.clear();
  std::string reason;
  const auto note = [&](bool written, const std::string& path) {
    if (!written) error += "cannot write " + path + ": " + reason + "\n";
  };
  const auto write = [&](const std::string& path, const std::vector<char>& bytes) {
    note(WriteOutputFile(path, bytes, reason), path);
  };
  constexpr PointFields kFields = PointFields::kPixelAndEcho;
  if (!files.pcd.empty()) write(files.pcd, EncodePcd(points, kFields, files.pcd_numbers));
  if (!files.ply.empty()) write(files.ply, EncodePly(points, kFields));
  if (!files.las.empty()) write(files.las, EncodeLas(points, LasOptionsOf(frame)));
  if (!files.png.empty()) {
    const Canvas picture = DrawPicture(frame, points, options);
    note(WritePng(files.png, picture.width, picture.height, picture.rgb, reason), files.png);
  }
  return error.empty();
}

}  // namespace kerul::lidar::view
