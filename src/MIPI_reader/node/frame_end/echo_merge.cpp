#include "MIPI_reader/node/frame_end/echo_merge.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <span>

namespace kerul::lidar {
namespace {

constexpr std::uint32_t kSampleMask = 0xFFF;
constexpr int kAddressMask = 0xFFF;
constexpr std::uint32_t kMaxSample = 4095;
constexpr int kHalfWindow = 8;
// Windows whose centres are this far apart still share one position.
constexpr int kMaxGap = 16;
constexpr int kFour = 4;
// The longest span of positions, less one, that may be summed.
constexpr int kMaxAxisSpan = 65535;
constexpr int kAxisPositions = kAddressMask + kWindowSamples;
// Addresses of 12 bits cannot spread beyond the limit, so no sum needs to test for it.
static_assert(kAxisPositions - 1 <= kMaxAxisSpan);

struct Window {
  const std::uint16_t* samples;
  int center;  // 0..4095
};

Window WindowOf(const LidarPoint& point, int echo) noexcept {
  const LidarEcho& record = point.echoes[echo];
  return {record.bins.data(), record.peak_addr & kAddressMask};
}

bool CanMerge(int a, int b) noexcept { return std::abs(a - b) <= kMaxGap; }

// Sums at least one window; window_at(i) gives the i-th. Returns the centre, which is negative when
// the largest sum lies there.
template <class WindowAt>
int SumWindows(int count, const WindowAt& window_at, std::uint16_t* out) noexcept {
  int nearest = kAddressMask;
  int farthest = 0;
  for (int i = 0; i < count; ++i) {
    nearest = std::min(nearest, window_at(i).center);
    farthest = std::max(farthest, window_at(i).center);
  }
  const int lo = nearest - kHalfWindow;
  const int length = farthest - nearest + kWindowSamples;
  // Left unset from `length` on: clearing it all would cost more than the sum.
  std::array<std::uint32_t, kAxisPositions> sums;
  std::fill_n(sums.begin(), length, 0U);
  for (int i = 0; i < count; ++i) {
    const Window window = window_at(i);
    std::uint32_t* first = sums.data() + (window.center - nearest);
    for (int j = 0; j < kWindowSamples; ++j) first[j] += window.samples[j] & kSampleMask;
  }
  // The lowest position wins a tie.
  const auto best =
      static_cast<int>(std::max_element(sums.begin(), sums.begin() + length) - sums.begin());
  for (int j = 0; j < kWindowSamples; ++j) {
    const int at = best - kHalfWindow + j;
    const bool is_covered = at >= 0 && at < length;
    const std::uint32_t sum = is_covered ? sums[static_cast<std::size_t>(at)] : 0U;
    out[j] = static_cast<std::uint16_t>(std::min(sum, kMaxSample));
  }
  return lo + best;
}

int SumAll(std::span<const Window> windows, std::uint16_t* out) noexcept {
  return SumWindows(
      static_cast<int>(windows.size()), [&](int i) { return windows[static_cast<std::size_t>(i)]; },
      out);
}

std::uint64_t Pack(int center, std::uint32_t mask) noexcept {
  return static_cast<std::uint64_t>(mask) << 32 | static_cast<std::uint32_t>(center);
}

// May the first three of `sources`, a row of kTriples, be merged?
bool IsCandidate(const std::int32_t (&sources)[4], const std::array<Window, 4>& windows) noexcept {
  std::array<int, 3> sorted{};
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    sorted[i] = windows[static_cast<std::size_t>(sources[i])].center;
  }
  std::sort(sorted.begin(), sorted.end());
  return CanMerge(sorted[0], sorted[1]) && CanMerge(sorted[1], sorted[2]);
}

// Does the source left out reach one of the three?
bool FourthReaches(const std::int32_t (&sources)[4],
                   const std::array<Window, 4>& windows) noexcept {
  const auto center = [&](int i) { return windows[static_cast<std::size_t>(sources[i])].center; };
  return CanMerge(center(3), center(0)) || CanMerge(center(3), center(1)) ||
         CanMerge(center(3), center(2));
}

// The mean of `field` of the sources that `mask` names, summed in double in source order.
template <class Field>
float Mean(const LidarPoint* const* points, std::uint32_t mask, const Field& field) noexcept {
  double sum = 0.0;
  for (int i = 0; i < kFour; ++i) {
    if ((mask >> i & 1U) != 0U) sum += static_cast<double>(field(*points[i]));
  }
  return static_cast<float>(sum / std::popcount(mask));
}

// All of the means but that of totsum.
void SetMeans(const LidarPoint* const* points, std::uint32_t mask, LidarPoint& merged) noexcept {
  merged.pixel_word22 = Mean(points, mask, [](const LidarPoint& p) { return p.pixel_word22; });
  merged.pixel_word11 = Mean(points, mask, [](const LidarPoint& p) { return p.pixel_word11; });
  merged.echoes[0].echosum =
      Mean(points, mask, [](const LidarPoint& p) { return p.echoes[0].echosum; });
  merged.echoes[0].noise =
      Mean(points, mask, [](const LidarPoint& p) { return p.echoes[0].noise; });
}

void SetMeanTotsum(const LidarPoint* const* points, std::uint32_t mask,
                   LidarPoint& merged) noexcept {
  merged.echoes[0].totsum =
      Mean(points, mask, [](const LidarPoint& p) { return p.echoes[0].totsum; });
}

void DivideSamples(LidarEcho& echo, std::uint32_t divisor) noexcept {
  for (std::uint16_t& sample : echo.bins) {
    sample = static_cast<std::uint16_t>((sample & kSampleMask) / divisor);
  }
}

float SampleSum(const LidarEcho& echo) noexcept {
  float sum = 0.0F;
  for (const std::uint16_t sample : echo.bins) sum += static_cast<float>(sample);
  return sum;
}

// Fills bins and peak_addr of the merged echo; false, with both zero, when the two lie too far
// apart.
bool MergeEchoOfTwo(const LidarPoint* const* points, int slot, LidarEcho& merged) noexcept {
  const std::array<Window, 2> windows{WindowOf(*points[0], slot), WindowOf(*points[1], slot)};
  if (!CanMerge(windows[0].center, windows[1].center)) return false;
  merged.peak_addr = SumAll(windows, merged.bins.data()) & kAddressMask;
  DivideSamples(merged, 2);
  return true;
}

LidarPoint MergeTwo(const LidarPoint* const* points) noexcept {
  LidarPoint merged;
  const bool first_merged = MergeEchoOfTwo(points, 0, merged.echoes[0]);
  const bool second_merged =
      LidarPoint::echo_num == 2 && MergeEchoOfTwo(points, 1, merged.echoes[1]);
  if (!first_merged && !second_merged) return merged;
  constexpr std::uint32_t kBoth = 0b11;
  SetMeans(points, kBoth, merged);
  SetMeanTotsum(points, kBoth, merged);
  if (first_merged) merged.echoes[0].totsum = SampleSum(merged.echoes[0]);
  if (second_merged) merged.echoes[1].totsum = SampleSum(merged.echoes[1]);
  return merged;
}

// Fills bins and peak_addr of the merged echo; gives the mask of its sources, 0 for none.
std::uint32_t MergeEchoOfFour(const LidarPoint* const* points, int slot,
                              LidarEcho& merged) noexcept {
  const std::uint64_t packed = PickAndMergeFour(points, slot, merged.bins.data());
  const auto mask = static_cast<std::uint32_t>(packed >> 32);
  if (mask == 0U) return mask;
  DivideSamples(merged, static_cast<std::uint32_t>(std::popcount(mask)));
  // The bit pattern of a negative centre wraps. Deliberate.
  merged.peak_addr = static_cast<std::int32_t>(packed & std::uint64_t{kAddressMask});
  return mask;
}

// Sources with a return of their own count; if none has one, all do.
std::uint32_t SourcesWithReturn(const LidarPoint* const* points, std::uint32_t mask) noexcept {
  std::uint32_t with_return = 0;
  for (int i = 0; i < kFour; ++i) {
    if (points[i]->echoes[0].dist_raw > 0.0F) with_return |= 1U << i;
  }
  return (mask & with_return) != 0U ? mask & with_return : mask;
}

LidarPoint MergeFour(const LidarPoint* const* points) noexcept {
  LidarPoint merged;
  const bool has_second = LidarPoint::echo_num == 2;
  const std::uint32_t first_mask = MergeEchoOfFour(points, 0, merged.echoes[0]);
  const std::uint32_t second_mask =
      has_second ? MergeEchoOfFour(points, 1, merged.echoes[1]) : std::uint32_t{0};
  const std::uint32_t mask = first_mask | second_mask;
  // A mask that is not empty has three bits or four.
  if (mask == 0U) return LidarPoint{};
  // Deliberate: the mean of the sources with two slots, the sum of the samples with one.
  if (has_second) {
    const std::uint32_t counted = SourcesWithReturn(points, mask);
    SetMeans(points, counted, merged);
    SetMeanTotsum(points, counted, merged);
  } else {
    SetMeans(points, mask, merged);
    merged.echoes[0].totsum = SampleSum(merged.echoes[0]);
  }
  return merged;
}

}  // namespace

int MergeWindowsOnAxis(const std::uint16_t* const* windows, const int* addresses, int count,
                       std::uint16_t* out) noexcept {
  const auto window_at = [&](int i) { return Window{windows[i], addresses[i] & kAddressMask}; };
  if (count < 2 || (count == 2 && !CanMerge(window_at(0).center, window_at(1).center))) {
    std::fill_n(out, kWindowSamples, std::uint16_t{0});
    return 0;
  }
  return SumWindows(count, window_at, out);
}

std::uint64_t PickAndMergeFour(const LidarPoint* const* points, int echo,
                               std::uint16_t* out) noexcept {
  std::array<Window, kFour> windows{};
  for (std::size_t i = 0; i < kFour; ++i) windows[i] = WindowOf(*points[i], echo);
  for (const auto& row : kTriples) {
    if (!IsCandidate(row, windows)) continue;
    if (FourthReaches(row, windows)) return Pack(SumAll(windows, out), 0xF);
    // Two candidates share two sources, so the one that either leaves out would reach it. So this
    // is the only candidate, and there is no closest one to look for.
    std::array<Window, 3> chosen{};
    std::uint32_t mask = 0;
    for (std::size_t i = 0; i < chosen.size(); ++i) {
      chosen[i] = windows[static_cast<std::size_t>(row[i])];
      mask |= 1U << row[i];
    }
    return Pack(SumAll(chosen, out), mask);
  }
  std::fill_n(out, kWindowSamples, std::uint16_t{0});
  return Pack(0, 0);
}

LidarPoint MergePoints(const LidarPoint* const* points, int count) noexcept {
  if (count == 2) return MergeTwo(points);
  if (count == 4) return MergeFour(points);
  return LidarPoint{};
}

}  // namespace kerul::lidar
