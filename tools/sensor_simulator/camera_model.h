// The receiver's camera: which way each pixel looks.
//
// The image of the fisheye lens falls on a sensor of 576 x 576 cells, read out 2 x 2, of which the
// middle 216 x 288 grid places are used. Grid row 0 is the bottom of the picture: it looks down
// (z negative), row 215 looks up; column 0 looks to the left (y positive), column 287 to the right.
// With a level mount the ground's range therefore grows with the row number.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sensor_simulator/vec3.h"

namespace kerul::lidar::simulator {

inline constexpr std::size_t kCameraRecordBytes = 78;

struct CameraModel {
  int bin_x = 2;  // sensor cells per grid step
  int bin_y = 2;
  int rows = 216;
  int cols = 288;
  float focal_cells = 276.4F;     // cells per radian near the axis
  float centre_x_cells = 288.7F;  // principal point
  float centre_y_cells = 287.2F;  // 20 cells or less from 288: the uncropped sensor
  std::array<float, 4> distortion = {-0.0214F, 0.0037F, -0.00021F, 0.0000071F};
  float half_tilt_tan = 0.0021F;  // tangent of half the tilt of the axis
  float tilt_azimuth_rad = 0.71F;
};

// Unit direction of every pixel, row-major. Double precision, by Newton's method on the lens
// polynomial: no table stands between model and direction.
std::vector<Vec3> PixelDirections(const CameraModel& camera);

// The 78-byte record that describes the camera to a reader.
std::array<std::uint8_t, kCameraRecordBytes> CameraRecord(const CameraModel& camera);

}  // namespace kerul::lidar::simulator
