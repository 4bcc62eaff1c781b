#include "truth_report/fates.h"

#include <algorithm>
#include <cmath>

#include "MIPI_reader/parser/lidar_point.h"
#include "kerul_lidar/point_payload.h"
#include "truth_report/return_kinds.h"

namespace kerul::lidar::report {
namespace {

using simulator::EchoTruth;
using simulator::PixelTruth;
using simulator::ReturnKind;

PointPayload PayloadOf(const CollectedFrame& frame, const FramePoint& point) noexcept {
  return DecodePointPayload(frame.key.output_mode, point.payload.data());
}

double RelativeError(int published, const EchoTruth& truth) noexcept {
  const double expected = static_cast<double>(truth.reflectivity);
  // The published value stands for the middle of its step.
  return (published + 0.5 - expected) / expected;
}

void CountFilled(const PixelTruth& truth, float range_m, FillCounts& filled) noexcept {
  bool known = false;
  for (const EchoTruth& echo : truth) {
    if (!IsSurface(echo.kind)) continue;
    known = true;
    if (std::fabs(echo.range_m - range_m) <= std::max(0.03F * echo.range_m, 0.1F)) {
      ++filled.right;
      return;
    }
  }
  ++(known ? filled.wrong : filled.unknown);
}

// A return marked as highly reflective in the 3 x 3 blocks around a pixel's own.
bool HasSourceNear(const CollectedFrame& frame, int row, int col) noexcept {
  const int first_row = std::max(row / kBlockPixels - 1, 0) * kBlockPixels;
  const int end_row = std::min((row / kBlockPixels + 2) * kBlockPixels, kFrameRows);
  const int first_col = std::max(col / kBlockPixels - 1, 0) * kBlockPixels;
  const int end_col = std::min((col / kBlockPixels + 2) * kBlockPixels, kFrameCols);
  for (int r = first_row; r < end_row; ++r) {
    for (int c = first_col; c < end_col; ++c) {
      const FramePoint& point = frame.At(0, r, c);
      if (point.distance != 0 && PayloadOf(frame, point).high_refl) return true;
    }
  }
  return false;
}

Fate FateOf(const PointPayload& before, const PointPayload& after, bool kept) noexcept {
  Fate fate;
  fate.before = 1;
  fate.removed = kept ? 0 : 1;
  fate.marked = after.bloom ? 1 : 0;
  fate.dimmed = kept && after.reflectivity < before.reflectivity ? 1 : 0;
  return fate;
}

}  // namespace

Fate& Fate::operator+=(const Fate& other) noexcept {
  before += other.before;
  removed += other.removed;
  marked += other.marked;
  dimmed += other.dimmed;
  return *this;
}

Fate FateCounts::Surfaces() const noexcept {
  Fate sum;
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    const auto value = static_cast<ReturnKind>(kind);
    if (IsSurface(value) && value != ReturnKind::kRetro) sum += by_kind[kind];
  }
  return sum;
}

bool IsIsolated(const CollectedFrame& frame, int echo, int row, int col) noexcept {
  const float range = frame.RangeM(frame.At(echo, row, col));
  const float gate = std::max(0.04F * range, 0.4F);
  for (int r = std::max(row - 1, 0); r <= std::min(row + 1, kFrameRows - 1); ++r) {
    for (int c = std::max(col - 1, 0); c <= std::min(col + 1, kFrameCols - 1); ++c) {
      if (r == row && c == col) continue;
      for (int other = 0; other < kMaxEchoes; ++other) {
        const FramePoint& point = frame.At(other, r, c);
        if (point.distance != 0 && std::fabs(frame.RangeM(point) - range) < gate) return false;
      }
    }
  }
  return true;
}

namespace {

// One echo slot of one pixel.
struct Place {
  int echo;
  int row;
  int col;
};

void CountEcho(const PixelTruth& pixel, const Place& at, const CollectedFrame& before,
               const CollectedFrame& after, FateCounts& counts) {
  const FramePoint& point_before = before.At(at.echo, at.row, at.col);
  const FramePoint& point_after = after.At(at.echo, at.row, at.col);
  const PointPayload was = PayloadOf(before, point_before);
  const PointPayload is = PayloadOf(after, point_after);
  const bool filled = point_after.distance != 0 && is.filled;
  if (filled && !was.filled) CountFilled(pixel, after.RangeM(point_after), counts.filled);
  if (point_before.distance == 0 || was.filled) return;

  const EchoTruth& truth = pixel[static_cast<std::size_t>(at.echo)];
  const bool kept = point_after.distance != 0 && !filled;
  const Fate fate = FateOf(was, is, kept);
  counts.by_kind[static_cast<std::size_t>(truth.kind)] += fate;
  if (truth.kind == ReturnKind::kNoise && IsIsolated(before, at.echo, at.row, at.col)) {
    counts.isolated_noise += fate;
  }
  if (truth.kind == ReturnKind::kCrosstalk && at.echo == 0) {
    counts.first_crosstalk += fate;
    if ((was.cogw_flag & cogw_flags::kBelowLowCurve) != 0) counts.first_narrow_crosstalk += fate;
  }
  if (truth.kind == ReturnKind::kBloom && !is.bloom && !HasSourceNear(before, at.row, at.col)) {
    ++counts.bloom_without_source;
  }
  if (!IsSurface(truth.kind) || truth.kind == ReturnKind::kRetro) return;
  if (was.detect_failed) counts.weak += fate;
  if (kept && is.bloom) {
    counts.marked_error_before.push_back(RelativeError(was.reflectivity, truth));
    counts.marked_error_after.push_back(RelativeError(is.reflectivity, truth));
  }
}

}  // namespace

void CountFates(const simulator::SimulatedFrame& truth, const CollectedFrame& before,
                const CollectedFrame& after, FateCounts& counts) {
  for (int row = 0; row < kFrameRows; ++row) {
    for (int col = 0; col < kFrameCols; ++col) {
      const PixelTruth& pixel = truth.truth[static_cast<std::size_t>(row * kFrameCols + col)];
      for (int echo = 0; echo < kMaxEchoes; ++echo) {
        CountEcho(pixel, {echo, row, col}, before, after, counts);
      }
    }
  }
}

}  // namespace kerul::lidar::report
