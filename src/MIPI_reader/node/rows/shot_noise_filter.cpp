#include "MIPI_reader/node/rows/shot_noise_filter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MIPI_reader/node/rows/row_range.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kBlockSide = 6;   // pixels
constexpr float kStrongPeak = 30.0F;    // level units; two stronger returns are believed
constexpr int kMinValidRows = 4;        // of six, to judge a boundary at all
constexpr int kMaxTrustedSuspects = 8;  // suspect blocks a row may have without consequence

enum class EdgeRow : std::uint8_t { kNotCounted, kFits, kDiffers };

EdgeRow JudgeEdgeRow(const LidarEcho& left, const LidarEcho& right, float dist_gate_m) noexcept {
  const float a = left.dist_proc;
  const float b = right.dist_proc;
  if (!(a > 0.0F) && !(b > 0.0F)) return EdgeRow::kNotCounted;
  if (left.peak > kStrongPeak && right.peak > kStrongPeak) return EdgeRow::kNotCounted;
  // An empty pixel beside a filled one differs by the whole distance.
  return std::fabs(a - b) < dist_gate_m ? EdgeRow::kFits : EdgeRow::kDiffers;
}

// The boundary to the right of block `block` is broken when at least four rows can be judged and
// at most one of them fits.
bool IsBoundaryBroken(const FrameRows& rows, RowRange range, std::size_t block,
                      float dist_gate_m) noexcept {
  const std::size_t right_col = kBlockSide * (block + 1);
  int valid = 0;
  int differing = 0;
  for (std::size_t row = range.begin; row < range.end; ++row) {
    const std::vector<LidarPoint>& line = rows[row];
    if (right_col >= line.size()) continue;
    const EdgeRow verdict =
        JudgeEdgeRow(line[right_col - 1].echoes[0], line[right_col].echoes[0], dist_gate_m);
    if (verdict == EdgeRow::kNotCounted) continue;
    ++valid;
    if (verdict == EdgeRow::kDiffers) ++differing;
  }
  return valid >= kMinValidRows && differing >= valid - 1;
}

void EraseNarrowPulses(LidarPoint& pixel, int echo_count) noexcept {
  for (int slot = 0; slot < echo_count; ++slot) {
    LidarEcho& echo = pixel.echoes[slot];
    if ((echo.cogw_flag & cogw_flags::kBelowLowCurve) == 0) continue;
    echo.shot_noise_group_point = true;
    echo.dist_raw = 0.0F;
    echo.refl_raw = 0.0F;
    echo.dist_proc = 0.0F;
    echo.refl_proc = 0.0F;
  }
}

void EraseBlock(FrameRows& rows, RowRange range, std::size_t block, int echo_count) noexcept {
  for (std::size_t row = range.begin; row < range.end; ++row) {
    std::vector<LidarPoint>& line = rows[row];
    const std::size_t end = std::min(kBlockSide * (block + 1), line.size());
    for (std::size_t col = kBlockSide * block; col < end; ++col) {
      EraseNarrowPulses(line[col], echo_count);
    }
  }
}

}  // namespace

void FilterShotNoise(FrameRows& rows, int m_row, int block_columns, float dist_gate_m) {
  if (block_columns < 2) return;  // no boundary, nothing can be suspect
  constexpr auto kRows = static_cast<std::int64_t>(kBlockSide);
  const RowRange range = ClipRows(rows, kRows * m_row, kRows);
  const auto blocks = static_cast<std::size_t>(block_columns);

  std::vector<bool> sound(blocks - 1, true);
  for (std::size_t block = 0; block + 1 < blocks; ++block) {
    if (IsBoundaryBroken(rows, range, block, dist_gate_m)) sound[block] = false;
  }

  // A boundary that does not exist, at either end, counts as sound.
  std::vector<bool> suspect(blocks, false);
  for (std::size_t block = 0; block < blocks; ++block) {
    const bool left_broken = block > 0 && !sound[block - 1];
    const bool right_broken = block + 1 < blocks && !sound[block];
    suspect[block] = left_broken || right_broken;
  }
  if (std::count(suspect.begin(), suspect.end(), true) <= kMaxTrustedSuspects) return;

  const int echo_count = LidarPoint::echo_num;
  for (std::size_t block = 0; block < blocks; ++block) {
    if (suspect[block]) EraseBlock(rows, range, block, echo_count);
  }
}

}  // namespace kerul::lidar
