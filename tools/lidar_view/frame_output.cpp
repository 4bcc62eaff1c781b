#include "lidar_view/frame_output.h"

#include "lidar_view/point_files.h"
#include "lidar_view/view_points.h"
#include "support/png_file.h"

namespace kerul::lidar::view {

bool WriteFrameFiles(const FrameFiles& files, const CollectedFrame& frame,
                     const Directions& directions, const TransformParam* mount,
                     const PictureOptions& options, std::string& error) {
  const std::vector<ViewPoint> points = MakeViewPoints(frame, directions, mount);
  error.clear();
  std::string reason;
  const auto note = [&](bool written, const std::string& path) {
    if (!written) error += "cannot write " + path + ": " + reason + "\n";
  };
  if (!files.pcd.empty()) note(WritePcd(files.pcd, points, reason), files.pcd);
  if (!files.ply.empty()) note(WritePly(files.ply, points, reason), files.ply);
  if (!files.png.empty()) {
    const Canvas picture = DrawPicture(frame, points, options);
    note(WritePng(files.png, picture.width, picture.height, picture.rgb, reason), files.png);
  }
  return error.empty();
}

}  // namespace kerul::lidar::view
