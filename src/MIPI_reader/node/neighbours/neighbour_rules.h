// What the forms of the neighbour validation share: its numbers, and how the vector forms are
// called.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::neighbour {

// Offsets of the eight neighbours stand in neighbour_validation.h; a pair is two opposite ones.
inline constexpr int kPairs = 4;

// A return is as sure as can be from this peak_ratio on.
inline constexpr float kSureDetection = 1.0F;

// Support: an echo that stands out by itself needs the fewest neighbours; each limit of peak_ratio
// that it misses asks for one more.
inline constexpr int kMostSupport = 7;
inline constexpr float kSupportLimits[] = {kSureDetection, 0.9F, 0.8F, 0.7F};

// Gates on differences in range: a share of the range, but at least so many metres.
inline constexpr float kFillShare = 0.03F;
inline constexpr float kFillFloor = 0.1F;
inline constexpr float kSupportShare = 0.04F;
inline constexpr float kSupportFloor = 0.4F;
inline constexpr float kPairShare = 0.01F;
inline constexpr float kPairFloor = 0.1F;
// Ground is seen at a slant, its ranges change fast from row to row: its support gate is wider.
inline constexpr float kGroundWidening = 2.0F;

// Smoothing: the two diagonals count less than the column and the row.
inline constexpr float kPairWeights[kPairs] = {0.075F, 0.125F, 0.075F, 0.125F};
inline constexpr float kCentreWeight = 0.2F;
inline constexpr float kNoisyCentreWeight = 0.01F;

// Fill.
inline constexpr float kFillMinDist = 1.0F;  // metres
inline constexpr float kFillMemberWeight = 0.1F;
inline constexpr int kFillMinSamples = 4;
// Weight after 0..4 complete pairs. Not a running sum: that would differ in the last bit.
inline constexpr float kFillWeights[kPairs + 1] = {0.0F, 0.2F, 0.4F, 0.6F, 0.8F};

// ---- The vector forms ----

// Wider rows, rows of unlike width and more than two echoes are left to the scalar form.
inline constexpr int kMaxColumns = 320;
// As many rows as a miniflash row has.
inline constexpr int kMaxRows = 6;

// Rows to work on between the row above and the row below.
struct RowRun {
  LidarPoint* lines[kMaxRows + 2] = {};  // null: that row lies outside the frame
  int row_count = 0;                     // 1..kMaxRows, in lines[1] .. lines[row_count]
  int columns = 0;                       // 1..kMaxColumns
  int echo_count = 0;                    // 1 or 2
  bool prime = false;                    // prime the rows worked on first
};

void ValidateRunPlain(const RowRun& run) noexcept;
void ValidateRunAvx2(const RowRun& run) noexcept;
void ValidateRunAvx512(const RowRun& run) noexcept;

}  // namespace kerul::lidar::neighbour
