#include <cmath>
#include <cstring>

#include "reference/numeric.h"
#include "reference/para2.h"

namespace reference {
namespace {

using kerul::lidar::AngleCalibGrid;
using kerul::lidar::QndrAngleDatRecord;

// Radius in the normalised image plane over the angle from the axis; empty on failure.
struct Distortion {
  std::vector<float> radius;
  std::vector<float> theta;
};

Distortion TabulateDistortion(float f, const float* k) {
  constexpr std::size_t kMostSamples = 10000000;
  std::vector<float> sample_theta;
  std::vector<float> sample_r;
  Distortion distortion;
  const float limit = 750.0F / f;
  float theta = 0.0F;
  if (limit > 0.0F) {
    do {
      const float t2 = theta * theta;
      const float t3 = theta * t2;
      const float r =
          t3 * k[0] + theta + (t3 * t2) * k[1] + k[2] * (t3 * t2 * t2) + (t3 * t2 * t2 * t2) * k[3];
      sample_theta.push_back(theta);
      sample_r.push_back(r);
      if (sample_r.size() > kMostSamples) return distortion;
      theta = theta + 0.001F;
    } while (limit > theta);
  }
  for (std::size_t i = 0; i < sample_r.size(); ++i) {
    if (i == 0 || sample_r[i] > distortion.radius.back()) {
      distortion.radius.push_back(sample_r[i]);
      distortion.theta.push_back(sample_theta[i]);
    }
  }
  return distortion;
}

struct Rotation {
  float m00;
  float m01;
  float m10;
  float m11;
  float m20;
  float m21;
};

Rotation AxisTilt(float tilt_tan, float tilt_azimuth) {
  float azimuth = tilt_azimuth;
  float tilt = std::atan(tilt_tan) * 114.59155F;
  if (tilt < 0.0F) {
    tilt = -tilt;
    azimuth += 3.1415927F;
  }
  const float angle = tilt * 0.017453292F;
  const float s = std::sin(angle);
  const float c = std::cos(angle);
  const float t = azimuth / 6.2831855F;
  float floor_t = t;
  if (!(std::fabs(t) >= 8388608.0F)) {
    floor_t = static_cast<float>(Truncate(t));
    if (floor_t > t) floor_t -= 1.0F;
  }
  const float frac = t - floor_t;
  const float phi = (360.0F * frac + 180.0F) * 0.017453292F;
  const float ax = std::cos(phi);
  const float ay = std::sin(phi);
  Rotation m;
  m.m00 = ax * (ax * (1.0F - c)) + c;
  m.m01 = ax * ((1.0F - c) * ay);
  m.m10 = (ax * (1.0F - c)) * ay;
  m.m11 = (1.0F - c) * ay * ay + c;
  m.m20 = ay * -s;
  m.m21 = s * ax;
  return m;
}

struct Vector {
  float x = 0.0F;
  float y = 0.0F;
  float z = 0.0F;
};

// Direction for the point (u, v) of the image plane; all zero outside the model.
Vector RayThrough(float u, float v, float r_max, const Distortion& distortion) {
  const std::vector<float>& radius = distortion.radius;
  const std::vector<float>& theta = distortion.theta;
  const float r = std::sqrt(u * u + v * v);
  if (r == 0.0F) return Vector{0.0F, 0.0F, 1.0F};  // deliberately not the optical axis
  if (r > r_max || r < radius.front() || r > radius.back()) return Vector{};

  // First entry greater than r.
  std::size_t first = 0;
  std::size_t last = radius.size();
  while (first < last) {
    const std::size_t middle = (first + last) / 2;
    if (radius[middle] > r) {
      last = middle;
    } else {
      first = middle + 1;
    }
  }
  const std::size_t hi = first;
  if (hi == 0 || hi == radius.size()) return Vector{};
  const std::size_t lo = hi - 1;
  const float w = (r - radius[lo]) / (radius[hi] - radius[lo]);
  const float angle = w * theta[hi] + (1.0F - w) * theta[lo];
  if (std::isnan(angle)) return Vector{};

  float x = r / std::tan(angle);
  const float n = std::sqrt(x * x + u * u + v * v);
  if (n > 0.0F) {
    x = x / n;
    u = u / n;
    v = v / n;
  }
  return Vector{x, -u, -v};
}

Vector Normalised(const Vector& d) {
  if (!std::isfinite(d.x) || !std::isfinite(d.y) || !std::isfinite(d.z)) return Vector{};
  const float n = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
  if (n > 1e-8F) return Vector{d.x / n, d.y / n, d.z / n};
  return Vector{0.0F, 0.0F, 1.0F};
}

void Store(std::vector<float>& planes, std::size_t plane_size, std::size_t place,
           const Vector& value) {
  planes[place] = value.x;
  planes[plane_size + place] = value.y;
  planes[2 * plane_size + place] = value.z;
}

// Grid from the tabulated model and the camera record.
void FillGrid(const QndrAngleDatRecord& record, float cx, float cy, const Distortion& distortion,
              AngleCalibGrid& grid) {
  const int rows = record.rows;
  const int cols = record.cols;
  const float f = record.f;
  const int bin_x = record.binning >> 4;
  const int bin_y = record.binning & 15;
  const float width = static_cast<float>(bin_x * 288);
  const float height = static_cast<float>(bin_y * 288);
  const int row_off = (288 - rows) / 2;
  const int col_off = (288 - cols) / 2;
  const float far_x = Larger(width - cx, cx);
  const float far_y = Larger(height - cy, cy);
  const float r_max = std::sqrt(far_x * far_x + far_y * far_y) * 0.01008F + 0.1F;
  const Rotation m = AxisTilt(record.tilt_tan, record.tilt_azimuth);

  const auto plane_size = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
  grid.rows = rows;
  grid.cols = cols;
  grid.xyz.assign(3 * plane_size, 0.0F);
  grid.unit_xyz.assign(3 * plane_size, 0.0F);
  grid.valid = true;

  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < cols; ++j) {
      const int py = row_off * bin_y + 1 + i * bin_y;
      const int px = col_off * bin_x + 1 + j * bin_x;
      const float yn = (height - 1.0F - static_cast<float>(py) - cy) / f;
      const float xn = (static_cast<float>(px) - cx) / f;
      const float d = m.m20 * xn + m.m21 * yn - 1.0F;
      const float u = -(m.m00 * xn + m.m01 * yn) / d;
      const float v = -(m.m10 * xn + m.m11 * yn) / d;
      const Vector direction = RayThrough(u, v, r_max, distortion);
      const std::size_t place = static_cast<std::size_t>(i) * static_cast<std::size_t>(cols) +
                                static_cast<std::size_t>(j);
      Store(grid.xyz, plane_size, place, direction);
      Store(grid.unit_xyz, plane_size, place, Normalised(direction));
    }
  }
}

}  // namespace

AngleCalibGrid AngleGrid(const std::uint8_t* data, std::size_t size) {
  AngleCalibGrid grid;
  if (data == nullptr || size < 78) return grid;
  QndrAngleDatRecord record;
  std::memcpy(&record, data, 78);
  if (record.rows == 0 || record.cols == 0 || record.f <= 0.0F) return grid;
  // The principal point is given on a cropped sensor.
  float cx = record.cx;
  float cy = record.cy;
  if (std::fabs(cy - 288.0F) > 20.0F) {
    cx += static_cast<float>(288 - record.cols);
    cy += static_cast<float>(288 - record.rows);
  }
  // The fisheye model, then the grid.
  float k[4];
  for (int i = 0; i < 4; ++i) k[i] = record.k[i];
  const Distortion distortion = TabulateDistortion(record.f, k);
  if (distortion.radius.size() < 2) return grid;
  FillGrid(record, cx, cy, distortion, grid);
  return grid;
}

}  // namespace reference
