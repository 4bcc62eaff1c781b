#include "lidar_view/default_angle_record.h"

#include "sensor_simulator/camera_model.h"

namespace kerul::lidar::view {

QndrAngleDatRecord DefaultAngleRecord() {
  const simulator::CameraModel camera;
  QndrAngleDatRecord record{};
  record.binning = static_cast<std::uint8_t>(camera.bin_x << 4 | camera.bin_y);
  record.rows = static_cast<std::uint16_t>(camera.rows);
  record.cols = static_cast<std::uint16_t>(camera.cols);
  record.f = camera.focal_cells;
  record.cx = camera.centre_x_cells;
  record.cy = camera.centre_y_cells;
  for (std::size_t i = 0; i < camera.distortion.size(); ++i) record.k[i] = camera.distortion[i];
  record.tilt_tan = camera.half_tilt_tan;
  record.tilt_azimuth = camera.tilt_azimuth_rad;
  return record;
}

}  // namespace kerul::lidar::view
