// The camera model record and the direction grid built from it, against the reference.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "byte_input.h"
#include "calibration/angle_calib.h"
#include "reference/para2.h"
#include "support/point_compare.h"

using namespace kerul::lidar;
using fuzz::Require;

namespace {

constexpr std::size_t kFocalLengthOffset = offsetof(QndrAngleDatRecord, f);
constexpr std::size_t kRowsOffset = offsetof(QndrAngleDatRecord, rows);
// A shorter focal length gives a table of up to ten million entries, a larger grid millions of
// directions. Both are bounded, but would take up the fuzzer's time.
constexpr float kShortestFocalLength = 0.5F;
constexpr unsigned kLargestGrid = 1024;

bool SameDirections(const std::vector<float>& got, const std::vector<float>& expected) {
  if (got.size() != expected.size()) return false;
  for (std::size_t i = 0; i < got.size(); ++i) {
    if (!testing::SameValue(got[i], expected[i])) return false;
  }
  return true;
}

void CheckValid(const AngleCalibGrid& grid) {
  Require(grid.rows > 0 && grid.cols > 0, "a grid with pixels");
  for (int plane = -1; plane <= 3; ++plane) {
    for (int row = -1; row <= grid.rows; row += 3) {
      const float value = grid.At(plane, row, (row * 7) % (grid.cols + 1));
      AngleCalibGrid::EncodeComponent(value);
    }
  }
  for (const float component : grid.unit_xyz) {
    Require(component >= -1.001F && component <= 1.001F, "a unit direction");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> bytes(data, data + size);
  if (size >= kAngleRecordBytes) {
    float f = 0.0F;
    std::memcpy(&f, &bytes[kFocalLengthOffset], sizeof(f));
    if (f > 0.0F && f < kShortestFocalLength) return 0;
    std::uint16_t shape[2];
    std::memcpy(shape, &bytes[kRowsOffset], sizeof(shape));
    if (unsigned{shape[0]} * shape[1] > kLargestGrid) {
      shape[0] %= 33;
      shape[1] %= 32;
      std::memcpy(&bytes[kRowsOffset], shape, sizeof(shape));
    }
  }
  AngleCalibGrid grid;
  std::string error;
  const bool valid = load_angle_calib_from_dat_bytes(bytes.data(), bytes.size(), grid, &error);
  Require(valid == grid.valid && valid == error.empty(), "a grid or a reason");
  const AngleCalibGrid expected = reference::AngleGrid(bytes.data(), bytes.size());
  Require(valid == expected.valid, "valid as the reference");
  if (!valid) return 0;
  Require(grid.rows == expected.rows && grid.cols == expected.cols, "the reference's shape");
  Require(SameDirections(grid.xyz, expected.xyz), "the reference's directions");
  Require(SameDirections(grid.unit_xyz, expected.unit_xyz), "the reference's unit directions");
  CheckValid(grid);
  return 0;
}
