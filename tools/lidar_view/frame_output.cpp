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
  const auto note = [&](bool written, const std::string& path, const std::string& reason) {
    if (!written) error += "cannot write " + path + (reason.empty() ? "" : ": " + reason) + "\n";
  };
  if (!files.pcd.empty()) note(WritePcd(files.pcd, points), files.pcd, "");
  if (!files.ply.empty()) note(WritePly(files.ply, points), files.ply, "");
  if (!files.png.empty()) {
    std::string reason;
    const Canvas picture = DrawPicture(frame, points, options);
    const bool written = WritePng(files.png, picture.width, picture.height, picture.rgb, reason);
    note(written, files.png, reason);
  }
  return error.empty();
}

}  // namespace kerul::lidar::view
