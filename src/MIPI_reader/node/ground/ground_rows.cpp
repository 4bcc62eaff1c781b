#include "MIPI_reader/node/ground/ground_rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "MIPI_reader/node/ground/ground_refl_scale.h"
#include "MIPI_reader/node/ground/ground_rules.h"
#include "MIPI_reader/node/rows/row_range.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

using ground::kMinCentre;
using ground::kReach;
using ground::kWindow;

constexpr std::size_t kCentre = kReach;
// Pixel rows above this one look up into the sky. A constant of the sensor, not of the frame.
constexpr std::size_t kLastGroundRow = 108;
constexpr float kDefaultMinDist = 1.0F;  // metres
constexpr float kNoCorrection = 0.999F;  // scales from here on leave the reflectivity alone
constexpr float kSmoothWeights[kWindow] = {0.15F, 0.2F, 0.25F, 0.2F, 0.15F};

// Echo 0 ranges of five pixels in a line, metres, the pixel itself in the middle.
using Window = std::array<float, kWindow>;

// The part of the column window over which the ranges rise; count 0 when they do not.
struct Run {
  std::size_t first = 0;  // index into the window
  std::size_t count = 0;
};

// Largest differences along the row, metres.
struct RowGates {
  float mean;
  float max;
};

float MinGroundDist(const std::vector<float>& min_dist, int m_row) noexcept {
  if (min_dist.empty()) return kDefaultMinDist;
  const std::size_t last = min_dist.size() - 1;
  return min_dist[std::min(static_cast<std::size_t>(std::max(m_row, 0)), last)];
}

Window ReadColumn(const FrameRows& rows, std::size_t row, std::size_t col) noexcept {
  Window window{};
  for (std::size_t i = 0; i < kWindow; ++i) {
    window[i] = rows[row + i - kCentre][col].echoes[0].dist_raw;
  }
  return window;
}

Window ReadRow(const std::vector<LidarPoint>& line, std::size_t col) noexcept {
  Window window{};
  for (std::size_t i = 0; i < kWindow; ++i) {
    window[i] = line[col + i - kCentre].echoes[0].dist_raw;
  }
  return window;
}

// All five have a return, and at most one of them is nearer than ground can be.
bool IsColumnFilled(const Window& column, float min_dist) noexcept {
  int too_near = 0;
  for (const float d : column) {
    if (!(d > 0.0F)) return false;
    if (d < min_dist) ++too_near;
  }
  return too_near <= ground::kMaxTooNear;
}

Run FindRisingRun(const Window& column) noexcept {
  const bool middle_rises = column[2] > column[1] && column[3] > column[2];
  const bool end_rises = column[4] > column[3];
  if (!middle_rises) return {};
  if (column[1] > column[0]) return end_rises ? Run{0, 5} : Run{0, 4};
  return end_rises ? Run{1, 4} : Run{};
}

bool RisesEnough(const Window& column, const Run& run, float scale,
                 const GroundSettings& settings) noexcept {
  const float rise = std::fabs(column[run.first + run.count - 1] - column[run.first]);
  return rise > std::min(settings.vert_span_max, settings.vert_span_ratio * scale);
}

RowGates MakeRowGates(float scale, const GroundSettings& settings) noexcept {
  return {std::min(settings.mean_diff_max, settings.mean_diff_ratio * scale),
          std::min(settings.max_diff_max, settings.max_diff_ratio * scale)};
}

bool IsRowLevel(const Window& line, float min_dist, const RowGates& gates) noexcept {
  const float centre = line[kCentre];
  float sum = 0.0F;
  float max_diff = 0.0F;
  int valid = 0;
  for (std::size_t i = 0; i < kWindow; ++i) {
    if (i == kCentre || !(line[i] >= min_dist)) continue;
    sum += line[i];
    max_diff = std::max(max_diff, std::fabs(line[i] - centre));
    ++valid;
  }
  if (valid == 0) return false;
  const float mean_diff = std::fabs(sum / static_cast<float>(valid) - centre);
  return mean_diff < gates.mean && max_diff < gates.max;
}

// A ground echo seen at a slant returns less light; the scale undoes it.
void CorrectReflectivity(LidarEcho& echo) noexcept {
  if (!(echo.ground_refl_scale < kNoCorrection)) return;
  echo.refl_raw = echo.refl_raw / echo.ground_refl_scale;
  echo.refl_proc = echo.refl_raw;
}

// Neighbours are read in place, so those to the left carry their corrected reflectivity.
void SmoothAlongRow(std::vector<LidarPoint>& line, std::size_t col, float gate) noexcept {
  LidarEcho& centre = line[col].echoes[0];
  float sum_d = 0.0F;
  float sum_r = 0.0F;
  float sum_w = 0.0F;
  for (std::size_t i = 0; i < kWindow; ++i) {
    const LidarEcho& echo = line[col + i - kCentre].echoes[0];
    if (!(echo.dist_raw > 0.0F) || !(std::fabs(echo.dist_raw - centre.dist_raw) < gate)) continue;
    sum_d += kSmoothWeights[i] * echo.dist_raw;
    sum_r += kSmoothWeights[i] * echo.refl_raw;
    sum_w += kSmoothWeights[i];
  }
  if (!(sum_w > 0.0F)) return;
  centre.dist_proc = sum_d / sum_w;
  centre.refl_proc = sum_r / sum_w;
}

// What the tests of one pixel need beside the frame.
struct Context {
  const GroundSettings& settings;
  const AngleCalibGrid& grid;
  float min_dist;  // metres
};

void LabelPixel(FrameRows& rows, std::size_t row, std::size_t col,
                const Context& context) noexcept {
  const GroundSettings& settings = context.settings;
  const Window column = ReadColumn(rows, row, col);
  if (!IsColumnFilled(column, context.min_dist)) return;
  const Run run = FindRisingRun(column);
  if (run.count == 0) return;
  const float scale = std::max(column[kCentre], kMinCentre);
  if (!RisesEnough(column, run, scale, settings)) return;
  const RowGates gates = MakeRowGates(scale, settings);
  if (!IsRowLevel(ReadRow(rows[row], col), context.min_dist, gates)) return;

  LidarEcho& echo = rows[row][col].echoes[0];
  if (settings.vert_seed_enable) {
    echo.ground_refl_scale = EstimateGroundReflScale(
        column.data() + run.first, static_cast<int>(run.count), static_cast<int>(row),
        static_cast<int>(col), static_cast<int>(run.first) - kReach, context.grid);
  }
  // Without the seed the scale of an earlier time still counts: it is never reset.
  CorrectReflectivity(echo);
  echo.ground = true;
  if (settings.smooth_enable) SmoothAlongRow(rows[row], col, std::min(gates.mean, gates.max));
}

void LabelRowsScalar(FrameRows& rows, RowRange range, const Context& context) noexcept {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const bool row_fits = row >= kReach && row <= kLastGroundRow && row + kReach < rows.size();
    const std::size_t width = rows[row].size();
    for (std::size_t col = 0; col < width; ++col) {
      rows[row][col].echoes[0].ground = false;
      if (row_fits && col >= kReach && col + kReach < width) LabelPixel(rows, row, col, context);
    }
  }
}

using VectorForm = void (*)(const ground::RowRun&, const GroundSettings&,
                            ground::GroundBits&) noexcept;
constexpr VectorForms<VectorForm> kForms{ground::FindGroundPlain, ground::FindGroundAvx2,
                                         ground::FindGroundAvx512};

// The rows of the range that can hold ground.
RowRange CutToGroundRows(const FrameRows& rows, RowRange range) noexcept {
  const std::size_t height = rows.size();
  const std::size_t end =
      std::min({range.end, kLastGroundRow + 1, height - std::min<std::size_t>(height, kReach)});
  const std::size_t begin = std::max<std::size_t>(range.begin, kReach);
  return begin < end ? RowRange{begin, end} : RowRange{};
}

// Whether the rows, and the kReach ones on either side, suit the vector forms.
bool FitsVectorForms(const FrameRows& rows, RowRange range) noexcept {
  if (range.begin == range.end || range.end - range.begin > ground::kMaxRows) return false;
  const std::size_t columns = rows[range.begin].size();
  if (columns < 1 || columns > ground::kMaxColumns) return false;
  return std::all_of(rows.begin() + static_cast<std::ptrdiff_t>(range.begin - kReach),
                     rows.begin() + static_cast<std::ptrdiff_t>(range.end + kReach),
                     [&](const std::vector<LidarPoint>& line) { return line.size() == columns; });
}

// A pixel that is known to pass all tests.
void LabelFound(FrameRows& rows, std::size_t row, std::size_t col,
                const Context& context) noexcept {
  if (context.settings.vert_seed_enable || context.settings.smooth_enable) {
    LabelPixel(rows, row, col, context);
    return;
  }
  LidarEcho& echo = rows[row][col].echoes[0];
  CorrectReflectivity(echo);
  echo.ground = true;
}

void LabelRowsByLanes(FrameRows& rows, RowRange range, const Context& context,
                      VectorForm find_ground) noexcept {
  ground::RowRun run;
  run.row_count = static_cast<int>(range.end - range.begin);
  run.columns = static_cast<int>(rows[range.begin].size());
  run.min_dist = context.min_dist;
  for (std::size_t i = 0; i < range.end - range.begin + 2 * kReach; ++i) {
    run.lines[i] = rows[range.begin - kReach + i].data();
  }
  ground::GroundBits bits;
  find_ground(run, context.settings, bits);
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const auto& row_bits = bits.rows[row - range.begin];
    for (std::size_t word = 0; word < std::size(row_bits); ++word) {
      for (std::uint64_t left = row_bits[word]; left != 0; left &= left - 1) {
        const auto bit = static_cast<std::size_t>(std::countr_zero(left));
        LabelFound(rows, row, 64 * word + bit, context);
      }
    }
  }
}

}  // namespace

void LabelGroundByRise(FrameRows& rows, int m_row, int mrow_height, const GroundSettings& settings,
                       const AngleCalibGrid& grid) noexcept {
  const Context context{settings, grid, MinGroundDist(settings.min_dist, m_row)};
  const RowRange range = ClipRows(rows, std::int64_t{m_row} * mrow_height, mrow_height);
  const RowRange ground_rows = CutToGroundRows(rows, range);
  const VectorForm form = kForms.Chosen();
  if (form == nullptr || !FitsVectorForms(rows, ground_rows)) {
    LabelRowsScalar(rows, range, context);
    return;
  }
  for (std::size_t row = range.begin; row < range.end; ++row) {
    for (LidarPoint& pixel : rows[row]) pixel.echoes[0].ground = false;
  }
  LabelRowsByLanes(rows, ground_rows, context, form);
}

}  // namespace kerul::lidar
