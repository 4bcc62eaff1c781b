#include "truth_report/fates.h"

#include <algorithm>
#include <cmath>

#include "point_payload.h"
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

Fate FateCounts::FalseReturns() const noexcept {
  Fate sum;
  for (std::size_t kind = 1; kind < kKinds; ++kind) {
    if (!IsSurface(static_cast<ReturnKind>(kind))) sum += by_kind[kind];
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

void CountFates(const simulator::SimulatedFrame& truth, const CollectedFrame& before,
                const CollectedFrame& after, FateCounts& counts) {
  for (std::size_t place = 0; place < truth.truth.size() * kMaxEchoes; ++place) {
    const int echo = static_cast<int>(place % kMaxEchoes);
    const auto row = static_cast<int>(place / kMaxEchoes / kFrameCols);
    const auto col = static_cast<int>(place / kMaxEchoes % kFrameCols);
    const PixelTruth& pixel = truth.truth[place / kMaxEchoes];
    const FramePoint& point_before = before.At(echo, row, col);
    const FramePoint& point_after = after.At(echo, row, col);
    const PointPayload was = PayloadOf(before, point_before);
    const PointPayload is = PayloadOf(after, point_after);
    const bool filled = point_after.distance != 0 && is.filled;
    if (filled && !was.filled) CountFilled(pixel, after.RangeM(point_after), counts.filled);
    if (point_before.distance == 0 || was.filled) continue;

    const EchoTruth& echo_truth = pixel[static_cast<std::size_t>(echo)];
    const bool kept = point_after.distance != 0 && !filled;
    const Fate fate = FateOf(was, is, kept);
    counts.by_kind[static_cast<std::size_t>(echo_truth.kind)] += fate;
    if (echo_truth.kind == ReturnKind::kNoise && IsIsolated(before, echo, row, col)) {
      counts.isolated_noise += fate;
    }
    if (!IsSurface(echo_truth.kind) || echo_truth.kind == ReturnKind::kRetro) continue;
    if (was.detect_failed) counts.weak += fate;
    if (kept && is.bloom) {
      counts.marked_error_before.push_back(RelativeError(was.reflectivity, echo_truth));
      counts.marked_error_after.push_back(RelativeError(is.reflectivity, echo_truth));
    }
  }
}

}  // namespace kerul::lidar::report
