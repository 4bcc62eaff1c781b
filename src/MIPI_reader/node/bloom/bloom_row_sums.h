// The sums that the bloom filter takes over the sources and over the pixels around an echo, for the
// echoes of a block's row at once.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/bloom/bloom_echo.h"
#include "MIPI_reader/node/bloom/bloom_trace.h"
#include "MIPI_reader/node/bloom/power_pattern.h"

namespace kerul::lidar::bloom {

// A lane is a pixel of the row. Two more, which nobody reads, fill the vector.
inline constexpr int kRowLanes = 8;

// A block's pixels and those around it that the patterns of its echoes reach, one echo slot.
struct BlockWindow {
  static constexpr int kSide = kBlockSide + 2 * kPatternReach;
  static constexpr int kLine = kRowLanes + 2 * kPatternReach;

  float dist[kSide][kLine];   // NaN where there is no sample
  float power[kSide][kLine];  // 0 there
};

// The template where it lies under every block.
struct BlockTemplate {
  float expected[BlockWindow::kSide][BlockWindow::kLine];

  explicit BlockTemplate(const float (&power_template)[kTemplateSide][kTemplateSide]) noexcept {
    static_assert(kTemplateSide == kBlockSide && kPatternReach < kTemplateSide);
    constexpr int kShift = kTemplateSide - kPatternReach;
    for (int row = 0; row < BlockWindow::kSide; ++row) {
      for (int col = 0; col < BlockWindow::kLine; ++col) {
        expected[row][col] =
            power_template[(row + kShift) % kTemplateSide][(col + kShift) % kTemplateSide];
      }
    }
  }
};

struct RowJob {
  int row;                     // of the frame
  int first_col;               // of the block
  int window_row;              // where the window's samples for this row begin
  float dist[kRowLanes];       // dist_raw of the row's echoes, metres
  const BloomSource* sources;  // source_count of them
  int source_count;
  float dist_gate;            // metres
  const BlockWindow* window;  // null: no patterns
  const BlockTemplate* pattern;
};

struct RowSums {
  std::uint32_t counted;   // a bit for each echo that has a source at its range
  float spill[kRowLanes];  // of the sources at its range, 0 without one
  // PatternSums by field.
  float n[kRowLanes], s[kRowLanes], t[kRowLanes];
  float ss[kRowLanes], tt[kRowLanes], st[kRowLanes];
};

using RowSumsForm = void (*)(const RowJob& job, RowSums& sums) noexcept;
void SumRowPlain(const RowJob& job, RowSums& sums) noexcept;
void SumRowAvx2(const RowJob& job, RowSums& sums) noexcept;

}  // namespace kerul::lidar::bloom
