#include "calibration/angle_calib.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace kerul::lidar {
namespace {

static_assert(std::endian::native == std::endian::little, "the record is read as it stands");
static_assert(std::numeric_limits<float>::is_iec559);

constexpr int kSensorPixels = 288;               // sensor rows and columns per unit of binning
constexpr float kTableRadius = 750.0F;           // sensor pixels that the tabulated angles reach
constexpr float kThetaStep = 0.001F;             // radians
constexpr std::size_t kMaxSamples = 10'000'000;  // a real lens takes a few thousand
// A broken record can ask for 4 billion directions; no receiver comes near this bound.
constexpr std::size_t kMaxPixels = std::size_t{1} << 24;

constexpr float kDegreesOfTwiceRadian = 114.59155F;  // 360 / pi
constexpr float kRadiansOfDegree = 0.017453292F;
constexpr float kPi = 3.1415927F;
constexpr float kTwoPi = 6.2831855F;
constexpr float kMinNorm = 1e-8F;

struct Distortion {
  std::vector<float> radius;  // strictly ascending
  std::vector<float> theta;
};

// The part of the rotation matrix that the projection needs.
struct TiltRotation {
  float m00, m01, m10, m11, m20, m21;
};

struct Direction {
  float x, y, z;
};

void ClearGrid(AngleCalibGrid& grid) {
  grid.rows = 0;
  grid.cols = 0;
  grid.xyz.clear();
  grid.unit_xyz.clear();
  grid.valid = false;
}

bool Fail(std::string* error, const char* text) {
  if (error != nullptr) *error = text;
  return false;
}

// Rotation about an axis in the image plane, perpendicular to the direction of the tilt. m01 and
// m10 differ by rounding only, and are kept apart.
TiltRotation RotationOf(float tilt_degrees, float azimuth) {
  const float s = std::sin(tilt_degrees * kRadiansOfDegree);
  const float c = std::cos(tilt_degrees * kRadiansOfDegree);
  const float turns = azimuth / kTwoPi;
  const float fraction = turns - std::floor(turns);
  const float phi = (360.0F * fraction + 180.0F) * kRadiansOfDegree;
  const float ax = std::cos(phi);
  const float ay = std::sin(phi);
  return {.m00 = ax * (ax * (1.0F - c)) + c,
          .m01 = ax * ((1.0F - c) * ay),
          .m10 = (ax * (1.0F - c)) * ay,
          .m11 = (1.0F - c) * ay * ay + c,
          .m20 = ay * -s,
          .m21 = s * ax};
}

// The angle from the axis that belongs to radius r, false outside the table.
bool InterpolateAngle(const Distortion& lens, float r, float& angle) {
  const auto upper = std::upper_bound(lens.radius.begin(), lens.radius.end(), r);
  if (upper == lens.radius.begin() || upper == lens.radius.end()) return false;
  const auto hi = static_cast<std::size_t>(upper - lens.radius.begin());
  const std::size_t lo = hi - 1;
  const float w = (r - lens.radius[lo]) / (lens.radius[hi] - lens.radius[lo]);
  angle = w * lens.theta[hi] + (1.0F - w) * lens.theta[lo];
  return !std::isnan(angle);
}

// Direction of the point (xn, yn) of the normalised image plane; all zero outside the model.
Direction DirectionAt(const TiltRotation& m, const Distortion& lens, float r_max, float xn,
                      float yn) {
  const float d = m.m20 * xn + m.m21 * yn - 1.0F;
  const float u = -(m.m00 * xn + m.m01 * yn) / d;
  const float v = -(m.m10 * xn + m.m11 * yn) / d;
  const float r = std::sqrt(u * u + v * v);
  if (r == 0.0F) return {0.0F, 0.0F, 1.0F};  // deliberately not the optical axis, which is x
  if (r > r_max) return {};
  float angle = 0.0F;
  if (!InterpolateAngle(lens, r, angle)) return {};

  Direction ray{r / std::tan(angle), u, v};
  const float n = std::sqrt(ray.x * ray.x + u * u + v * v);
  if (n > 0.0F) ray = {ray.x / n, ray.y / n, ray.z / n};
  return {ray.x, -ray.y, -ray.z};
}

// An all-zero direction becomes (0, 0, 1), one with a NaN or infinite value (0, 0, 0). The
// difference is deliberate.
Direction Normalised(const Direction& raw) {
  if (!std::isfinite(raw.x) || !std::isfinite(raw.y) || !std::isfinite(raw.z)) return {};
  const float n = std::sqrt(raw.x * raw.x + raw.y * raw.y + raw.z * raw.z);
  if (!(n > kMinNorm)) return {0.0F, 0.0F, 1.0F};
  return {raw.x / n, raw.y / n, raw.z / n};
}

// A principal point far off the middle of the full sensor was given on a cropped one.
void MoveToFullSensor(QndrAngleDatRecord& record) {
  if (!(std::fabs(record.cy - 288.0F) > 20.0F)) return;
  record.cx += static_cast<float>(kSensorPixels - record.cols);
  record.cy += static_cast<float>(kSensorPixels - record.rows);
}

void FillDirections(const QndrAngleDatRecord& record, const TiltRotation& rotation,
                    const Distortion& lens, AngleCalibGrid& grid) {
  const int bin_x = record.binning >> 4;
  const int bin_y = record.binning & 15;
  const auto width = static_cast<float>(bin_x * kSensorPixels);
  const auto height = static_cast<float>(bin_y * kSensorPixels);
  const int row_start = (kSensorPixels - record.rows) / 2 * bin_y + 1;
  const int col_start = (kSensorPixels - record.cols) / 2 * bin_x + 1;

  const float far_x = std::max(width - record.cx, float{record.cx});
  const float far_y = std::max(height - record.cy, float{record.cy});
  const float r_max = std::sqrt(far_x * far_x + far_y * far_y) * 0.01008F + 0.1F;

  const std::size_t plane = grid.xyz.size() / 3;
  std::size_t pixel = 0;
  for (int i = 0; i < record.rows; ++i) {
    // The image's row axis runs downward, yn upward.
    const auto py = static_cast<float>(row_start + i * bin_y);
    const float yn = (height - 1.0F - py - record.cy) / record.f;
    for (int j = 0; j < record.cols; ++j, ++pixel) {
      const auto px = static_cast<float>(col_start + j * bin_x);
      const float xn = (px - record.cx) / record.f;
      const Direction ray = DirectionAt(rotation, lens, r_max, xn, yn);
      grid.xyz[pixel] = ray.x;
      grid.xyz[plane + pixel] = ray.y;
      grid.xyz[2 * plane + pixel] = ray.z;
    }
  }
}

}  // namespace

namespace angle_calib_detail {

void BuildDistortionInterp(float f, const float* k, std::vector<float>& radius,
                           std::vector<float>& theta) {
  radius.clear();
  theta.clear();
  const float limit = kTableRadius / f;
  if (!(limit > 0.0F)) return;
  float angle = 0.0F;
  for (std::size_t samples = 1;; ++samples) {
    const float t2 = angle * angle;
    const float t3 = angle * t2;
    const float r =
        t3 * k[0] + angle + (t3 * t2) * k[1] + k[2] * (t3 * t2 * t2) + (t3 * t2 * t2 * t2) * k[3];
    // Where the curve folds back, samples are left out until it rises above its highest point.
    if (radius.empty() || r > radius.back()) {
      radius.push_back(r);
      theta.push_back(angle);
    }
    const float next = angle + kThetaStep;
    if (!(limit > next)) return;
    if (samples == kMaxSamples) break;  // reached before the step is lost in the rounding of angle
    angle = next;
  }
  // The focal length is too small for a table: none at all.
  radius.clear();
  theta.clear();
}

void NormaliseDirections(AngleCalibGrid& grid) {
  grid.unit_xyz = grid.xyz;
  const std::size_t plane = grid.xyz.size() / 3;
  for (std::size_t pixel = 0; pixel < plane; ++pixel) {
    const Direction unit =
        Normalised({grid.xyz[pixel], grid.xyz[plane + pixel], grid.xyz[2 * plane + pixel]});
    grid.unit_xyz[pixel] = unit.x;
    grid.unit_xyz[plane + pixel] = unit.y;
    grid.unit_xyz[2 * plane + pixel] = unit.z;
  }
}

}  // namespace angle_calib_detail

bool load_angle_calib_from_dat_bytes(const std::uint8_t* data, std::size_t size,
                                     AngleCalibGrid& grid, std::string* error) {
  ClearGrid(grid);
  if (data == nullptr || size < kAngleRecordBytes) {
    return Fail(error, "角度标定内存块长度不足 (need 78)");
  }
  QndrAngleDatRecord record;
  std::memcpy(&record, data, kAngleRecordBytes);
  return gen_angle_xyz_from_dat_record(record, grid, error);
}

bool gen_angle_xyz_from_dat_record(const QndrAngleDatRecord& record, AngleCalibGrid& grid,
                                   std::string* error) {
  ClearGrid(grid);
  // A NaN focal length passes here and ends at the empty table below.
  const std::size_t pixels = std::size_t{record.rows} * record.cols;
  if (pixels == 0 || pixels > kMaxPixels || record.f <= 0.0F) {
    return Fail(error, "角度标定参数无效 (rows/cols/f)");
  }
  QndrAngleDatRecord model = record;
  MoveToFullSensor(model);

  float tilt_degrees = std::atan(model.tilt_tan) * kDegreesOfTwiceRadian;
  if (tilt_degrees < 0.0F) {
    tilt_degrees = -tilt_degrees;
    model.tilt_azimuth += kPi;
  }

  std::array<float, 4> k{};  // a copy, since the packed field is not aligned
  std::memcpy(k.data(), model.k, sizeof(model.k));
  Distortion lens;
  angle_calib_detail::BuildDistortionInterp(model.f, k.data(), lens.radius, lens.theta);
  if (lens.radius.size() < 2) return Fail(error, "畸变曲线单调点过少，无法插值");

  grid.rows = model.rows;
  grid.cols = model.cols;
  grid.xyz.resize(std::size_t{3} * model.rows * model.cols);
  FillDirections(model, RotationOf(tilt_degrees, model.tilt_azimuth), lens, grid);
  angle_calib_detail::NormaliseDirections(grid);
  grid.valid = true;
  return true;
}

}  // namespace kerul::lidar
