// The receiver's camera model and the direction grid built from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar {

inline constexpr std::size_t kAngleRecordBytes = 78;

// One camera model record, little-endian and packed: the format of the sensor's head page at
// offset 20, of the cached angle file and of the default table angle_dat.
#pragma pack(push, 1)
struct QndrAngleDatRecord {
  std::uint8_t unused_head[5];
  std::uint8_t binning;  // high nibble bin_x, low nibble bin_y: sensor pixels per grid step
  std::uint16_t rows;    // grid rows
  std::uint16_t cols;    // grid columns
  float f;               // focal length, sensor pixels
  float cx;              // principal point, column, sensor pixels
  float cy;              // principal point, row, sensor pixels
  float k[4];            // distortion coefficients of the powers 3, 5, 7, 9 of the angle
  float tilt_tan;        // tangent of half the axis tilt
  float tilt_azimuth;    // direction of the tilt, radians
  std::uint8_t unused_tail[32];
};
#pragma pack(pop)
static_assert(sizeof(QndrAngleDatRecord) == kAngleRecordBytes);

// A direction per pixel. Both vectors hold three planes, plane-major, each row-major:
// entry (plane * rows + row) * cols + col. Plane 0 is x along the optical axis, 1 is y, 2 is z.
struct AngleCalibGrid {
  std::int32_t rows = 0;
  std::int32_t cols = 0;
  std::vector<float> xyz;       // raw directions
  std::vector<float> unit_xyz;  // after the normalisation pass
  bool valid = false;

  // Entry of `xyz`; 0.0 for any coordinate outside the grid or an empty grid.
  float At(int plane, int row, int col) const noexcept;
  // A direction component as a byte: -1 gives 0, 0 gives 128, 1 gives 255, not finite 127.
  static std::uint8_t EncodeComponent(float value) noexcept;
};

// Clears `grid` and builds it from the first 78 bytes of `data`. False on failure, with the reason
// in *error when error is not null.
bool load_angle_calib_from_dat_bytes(const std::uint8_t* data, std::size_t size,
                                     AngleCalibGrid& grid, std::string* error);

// Its computation alone, in single precision throughout.
bool gen_angle_xyz_from_dat_record(const QndrAngleDatRecord& record, AngleCalibGrid& grid,
                                   std::string* error);

namespace angle_calib_detail {

// Tabulates the fisheye model: `radius` in the normalised image plane, strictly ascending, over
// `theta`, the angle from the axis in radians, in steps of 0.001. k holds four coefficients. Both
// stay empty for an `f` without a table: not above 0, infinite, NaN, or so small that the table
// would exceed 10 million samples.
void BuildDistortionInterp(float f, const float* k, std::vector<float>& radius,
                           std::vector<float>& theta);

// Fills `unit_xyz` from `xyz`: a direction that is all zero becomes (0, 0, 1), one with a NaN or
// infinite component (0, 0, 0).
void NormaliseDirections(AngleCalibGrid& grid);

}  // namespace angle_calib_detail
}  // namespace kerul::lidar
