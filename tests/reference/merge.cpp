#include "reference/merge.h"

#include <algorithm>

namespace reference {
namespace {

constexpr int kTriples[4][4] = {{0, 1, 2, 3}, {0, 1, 3, 2}, {0, 2, 3, 1}, {1, 2, 3, 0}};

int BitCount(unsigned mask) {
  int count = 0;
  for (int i = 0; i < 4; ++i) {
    if ((mask >> i & 1U) != 0) ++count;
  }
  return count;
}

int Distance(int a, int b) { return a > b ? a - b : b - a; }

// Sums on the axis. False when the axis would be too long.
bool SumOnAxis(const std::vector<const std::uint16_t*>& windows, const std::vector<int>& addresses,
               MergedWindow& out) {
  int lo = addresses[0] - 8;
  int hi = addresses[0] + 8;
  for (int a : addresses) {
    if (a - 8 < lo) lo = a - 8;
    if (a + 8 > hi) hi = a + 8;
  }
  if (hi - lo > 65535) return false;

  std::vector<std::uint32_t> sums(static_cast<std::size_t>(hi - lo + 1), 0);
  for (std::size_t i = 0; i < windows.size(); ++i) {
    for (int j = 0; j <= 16; ++j) {
      sums[static_cast<std::size_t>(addresses[i] - 8 + j - lo)] += windows[i][j] & 0xFFFU;
    }
  }

  int centre = lo;
  for (int position = lo; position <= hi; ++position) {
    if (sums[static_cast<std::size_t>(position - lo)] > sums[static_cast<std::size_t>(centre - lo)])
      centre = position;
  }

  out.centre = centre;
  for (int j = 0; j <= 16; ++j) {
    const int position = centre - 8 + j;
    out.samples[j] = 0;
    if (position < lo || position > hi) continue;
    const std::uint32_t sum = sums[static_cast<std::size_t>(position - lo)];
    out.samples[j] = static_cast<std::uint16_t>(sum >= 4096 ? 4095 : sum);
  }
  return true;
}

}  // namespace

MergedWindow MergeHistograms(const std::vector<const std::uint16_t*>& windows,
                             const std::vector<int>& addresses) {
  MergedWindow out;
  std::vector<int> masked;
  for (int a : addresses) masked.push_back(a & 0xFFF);
  if (windows.size() < 2) return out;
  if (windows.size() == 2 && Distance(masked[0], masked[1]) > 16) return out;
  SumOnAxis(windows, masked, out);
  return out;
}

namespace {

struct Candidate {
  int sources[3];
  int spread = 0;
  bool left_out_reaches = false;
};

bool MakeCandidate(const int* row, const int* addresses, Candidate& candidate) {
  int sorted[3] = {addresses[row[0]], addresses[row[1]], addresses[row[2]]};
  std::sort(sorted, sorted + 3);
  if (sorted[1] - sorted[0] > 16 || sorted[2] - sorted[1] > 16) return false;
  for (int i = 0; i < 3; ++i) candidate.sources[i] = row[i];
  candidate.spread = sorted[2] - sorted[0];
  const int left_out = addresses[row[3]];
  candidate.left_out_reaches = Distance(left_out, sorted[0]) <= 16 ||
                               Distance(left_out, sorted[1]) <= 16 ||
                               Distance(left_out, sorted[2]) <= 16;
  return true;
}

}  // namespace

MergedWindow PickAndMergeFour(const std::vector<const LidarPoint*>& points, int slot) {
  MergedWindow out;
  int addresses[4];
  for (int i = 0; i < 4; ++i) {
    addresses[i] = points[static_cast<std::size_t>(i)]->echoes[slot].peak_addr & 0xFFF;
  }
  // Triples whose neighbouring addresses are at most 16 apart.
  std::vector<Candidate> candidates;
  for (const auto& row : kTriples) {
    Candidate candidate;
    if (MakeCandidate(row, addresses, candidate)) candidates.push_back(candidate);
  }
  if (candidates.empty()) return out;
  // All four when a left-out source reaches its triple, else the tightest triple.
  bool all_four = false;
  const Candidate* best = &candidates[0];
  for (const Candidate& candidate : candidates) {
    if (candidate.left_out_reaches) all_four = true;
    if (candidate.spread < best->spread) best = &candidate;
  }
  std::vector<int> chosen = {best->sources[0], best->sources[1], best->sources[2]};
  if (all_four) chosen = {0, 1, 2, 3};

  std::vector<const std::uint16_t*> windows;
  std::vector<int> chosen_addresses;
  for (int i : chosen) {
    windows.push_back(points[static_cast<std::size_t>(i)]->echoes[slot].bins.data());
    chosen_addresses.push_back(addresses[i]);
    out.mask |= 1U << i;
  }
  SumOnAxis(windows, chosen_addresses, out);
  return out;
}

namespace {

// Means over the sources whose bit is set, in double.
template <typename Field>
float Mean(const std::vector<const LidarPoint*>& points, unsigned mask, Field field) {
  double sum = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if ((mask >> i & 1U) != 0) sum += static_cast<double>(field(*points[i]));
  }
  return static_cast<float>(sum / BitCount(mask));
}

float MeanWord22(const std::vector<const LidarPoint*>& points, unsigned mask) {
  return Mean(points, mask, [](const LidarPoint& p) { return p.pixel_word22; });
}
float MeanWord11(const std::vector<const LidarPoint*>& points, unsigned mask) {
  return Mean(points, mask, [](const LidarPoint& p) { return p.pixel_word11; });
}
float MeanEchosum(const std::vector<const LidarPoint*>& points, unsigned mask) {
  return Mean(points, mask, [](const LidarPoint& p) { return p.echoes[0].echosum; });
}
float MeanTotsum(const std::vector<const LidarPoint*>& points, unsigned mask) {
  return Mean(points, mask, [](const LidarPoint& p) { return p.echoes[0].totsum; });
}
float MeanNoise(const std::vector<const LidarPoint*>& points, unsigned mask) {
  return Mean(points, mask, [](const LidarPoint& p) { return p.echoes[0].noise; });
}

// Writes the window divided by `divisor` and gives the sum of the divided samples.
float StoreDivided(const MergedWindow& window, int divisor, LidarEcho& e) {
  float sum = 0.0F;
  for (std::size_t j = 0; j < 17; ++j) {
    e.bins[j] = static_cast<std::uint16_t>((window.samples[j] & 0xFFF) / divisor);
    sum += static_cast<float>(e.bins[j]);
  }
  return sum;
}

// Merges slot `slot` of two points. False, with zeros, when they do not meet.
bool MergePairSlot(const std::vector<const LidarPoint*>& points, int slot, LidarEcho& e,
                   float& sum) {
  const LidarEcho& a = points[0]->echoes[slot];
  const LidarEcho& b = points[1]->echoes[slot];
  const MergedWindow window =
      MergeHistograms({a.bins.data(), b.bins.data()}, {a.peak_addr, b.peak_addr});
  if (Distance(a.peak_addr & 0xFFF, b.peak_addr & 0xFFF) > 16) {
    e.peak_addr = 0;
    sum = 0.0F;
    return false;
  }
  e.peak_addr = window.centre & 0xFFF;
  sum = StoreDivided(window, 2, e);
  return true;
}

LidarPoint MergeTwo(const std::vector<const LidarPoint*>& points) {
  LidarPoint result;
  float e_sum = 0.0F;
  float f_sum = 0.0F;
  const bool merged0 = MergePairSlot(points, 0, result.echoes[0], e_sum);
  bool merged1 = false;
  if (LidarPoint::echo_num == 2) merged1 = MergePairSlot(points, 1, result.echoes[1], f_sum);
  if (!merged0 && !merged1) return result;
  result.pixel_word22 = MeanWord22(points, 3U);
  result.pixel_word11 = MeanWord11(points, 3U);
  result.echoes[0].echosum = MeanEchosum(points, 3U);
  result.echoes[0].totsum = MeanTotsum(points, 3U);
  result.echoes[0].noise = MeanNoise(points, 3U);
  if (merged0) result.echoes[0].totsum = e_sum;
  if (merged1) result.echoes[1].totsum = f_sum;
  return result;
}

LidarPoint MergeFourOneSlot(const std::vector<const LidarPoint*>& points) {
  LidarPoint result;
  const MergedWindow window = PickAndMergeFour(points, 0);
  if (BitCount(window.mask) < 3) return result;
  const float sum = StoreDivided(window, BitCount(window.mask), result.echoes[0]);
  result.echoes[0].peak_addr = window.centre & 0xFFF;
  result.pixel_word22 = MeanWord22(points, window.mask);
  result.pixel_word11 = MeanWord11(points, window.mask);
  result.echoes[0].echosum = MeanEchosum(points, window.mask);
  result.echoes[0].noise = MeanNoise(points, window.mask);
  result.echoes[0].totsum = sum;
  return result;
}

LidarPoint MergeFourTwoSlots(const std::vector<const LidarPoint*>& points) {
  LidarPoint result;
  const MergedWindow windows[2] = {PickAndMergeFour(points, 0), PickAndMergeFour(points, 1)};
  const unsigned u = windows[0].mask | windows[1].mask;
  if (BitCount(u) < 3) return result;
  for (int slot = 0; slot < 2; ++slot) {
    const MergedWindow& window = windows[slot];
    if (window.mask == 0) continue;  // bins and peak_addr stay 0
    StoreDivided(window, BitCount(window.mask), result.echoes[slot]);
    result.echoes[slot].peak_addr = window.centre & 0xFFF;
  }
  unsigned with_range = 0;
  for (unsigned i = 0; i < 4; ++i) {
    if ((u >> i & 1U) != 0 && points[i]->echoes[0].dist_raw > 0.0F) with_range |= 1U << i;
  }
  if (with_range == 0) with_range = u;
  result.pixel_word22 = MeanWord22(points, with_range);
  result.pixel_word11 = MeanWord11(points, with_range);
  result.echoes[0].echosum = MeanEchosum(points, with_range);
  result.echoes[0].totsum = MeanTotsum(points, with_range);
  result.echoes[0].noise = MeanNoise(points, with_range);
  return result;
}

}  // namespace

LidarPoint MergePoint(const std::vector<const LidarPoint*>& points) {
  if (points.size() == 2) return MergeTwo(points);
  if (points.size() != 4) return LidarPoint{};
  if (LidarPoint::echo_num == 2) return MergeFourTwoSlots(points);
  return MergeFourOneSlot(points);
}

}  // namespace reference
