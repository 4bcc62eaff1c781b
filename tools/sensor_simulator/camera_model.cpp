#include "sensor_simulator/camera_model.h"

#include <cmath>
#include <cstring>
#include <numbers>

#include "sensor_simulator/pixel_layout.h"

namespace kerul::lidar::simulator {
namespace {

constexpr int kSensorPlaces = 288;  // grid places of the whole sensor, both ways

// Image radius at the angle theta from the axis, in focal lengths, and its slope.
struct LensPoint {
  double radius;
  double slope;
};

LensPoint Lens(const std::array<float, 4>& k, double theta) noexcept {
  const double t2 = theta * theta;
  const double k0 = k[0];
  const double k1 = k[1];
  const double k2 = k[2];
  const double k3 = k[3];
  return {theta * (1.0 + t2 * (k0 + t2 * (k1 + t2 * (k2 + t2 * k3)))),
          1.0 + t2 * (3.0 * k0 + t2 * (5.0 * k1 + t2 * (7.0 * k2 + t2 * 9.0 * k3)))};
}

double AngleOfRadius(const std::array<float, 4>& k, double radius) noexcept {
  double theta = radius;
  for (int i = 0; i < 12; ++i) {
    const LensPoint point = Lens(k, theta);
    theta -= (point.radius - radius) / point.slope;
  }
  return theta;
}

// The lens is tilted: the image point is turned about an axis in the image plane and seen again
// from the lens centre, one focal length away.
class AxisTilt {
 public:
  explicit AxisTilt(const CameraModel& camera) noexcept {
    const double tilt = 2.0 * std::atan(static_cast<double>(camera.half_tilt_tan));
    const double axis = static_cast<double>(camera.tilt_azimuth_rad) + std::numbers::pi;
    sine_ = std::sin(tilt);
    cosine_ = std::cos(tilt);
    axis_x_ = std::cos(axis);
    axis_y_ = std::sin(axis);
  }

  void Apply(double& x, double& y) const noexcept {
    const double along = (axis_x_ * x + axis_y_ * y) * (1.0 - cosine_);
    const double turned_x = x * cosine_ + axis_x_ * along;
    const double turned_y = y * cosine_ + axis_y_ * along;
    const double depth = sine_ * (axis_x_ * y - axis_y_ * x);
    x = turned_x / (1.0 - depth);
    y = turned_y / (1.0 - depth);
  }

 private:
  double sine_;
  double cosine_;
  double axis_x_;
  double axis_y_;
};

template <typename T>
void Put(std::array<std::uint8_t, kCameraRecordBytes>& bytes, std::size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

}  // namespace

std::vector<Vec3> PixelDirections(const CameraModel& camera) {
  std::vector<Vec3> directions;
  directions.reserve(static_cast<std::size_t>(camera.rows) * static_cast<std::size_t>(camera.cols));
  const AxisTilt tilt(camera);
  const double height = camera.bin_y * kSensorPlaces;
  const int first_y = (kSensorPlaces - camera.rows) / 2 * camera.bin_y + 1;
  const int first_x = (kSensorPlaces - camera.cols) / 2 * camera.bin_x + 1;
  const double focal = camera.focal_cells;
  for (int row = 0; row < camera.rows; ++row) {
    for (int col = 0; col < camera.cols; ++col) {
      double right =
          (first_x + col * camera.bin_x - static_cast<double>(camera.centre_x_cells)) / focal;
      // Cells are counted from the top of the sensor, rows from the bottom of the picture that the
      // lens turned over: a large value looks down.
      double down = (height - 1.0 - (first_y + row * camera.bin_y) -
                     static_cast<double>(camera.centre_y_cells)) /
                    focal;
      tilt.Apply(right, down);
      const double radius = std::sqrt(right * right + down * down);
      if (radius == 0.0) {
        directions.push_back({1.0, 0.0, 0.0});
        continue;
      }
      const double theta = AngleOfRadius(camera.distortion, radius);
      const double across = std::sin(theta) / radius;
      directions.push_back({std::cos(theta), -right * across, -down * across});
    }
  }
  return directions;
}

std::array<std::uint8_t, kCameraRecordBytes> CameraRecord(const CameraModel& camera) {
  std::array<std::uint8_t, kCameraRecordBytes> bytes{};
  bytes[5] = static_cast<std::uint8_t>(camera.bin_x << 4 | camera.bin_y);
  Put(bytes, 6, static_cast<std::uint16_t>(camera.rows));
  Put(bytes, 8, static_cast<std::uint16_t>(camera.cols));
  Put(bytes, 10, camera.focal_cells);
  Put(bytes, 14, camera.centre_x_cells);
  Put(bytes, 18, camera.centre_y_cells);
  for (std::size_t i = 0; i < camera.distortion.size(); ++i) {
    Put(bytes, 22 + 4 * i, camera.distortion[i]);
  }
  Put(bytes, 38, camera.half_tilt_tan);
  Put(bytes, 42, camera.tilt_azimuth_rad);
  return bytes;
}

}  // namespace kerul::lidar::simulator
