// The echo merge written apart and slowly: sums in a map, sources in sets, every rule spelled out.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::merge_test {

using Samples = std::array<std::uint16_t, kWindowSamples>;

struct SlowMerge {
  Samples out{};
  std::int64_t center = 0;
  std::set<int> sources;
};

struct SlowWindow {
  Samples samples;
  int address;
};

inline void SlowSum(const std::vector<SlowWindow>& windows, SlowMerge& result) {
  std::map<int, long> axis;
  for (const SlowWindow& window : windows) {
    const int address = window.address % 4096;
    for (int position = address - 8; position <= address + 8; ++position) {
      axis[position] += window.samples[static_cast<std::size_t>(position - address + 8)] % 4096;
    }
  }
  // Positions between windows that do not touch hold a sum of nothing.
  const int lo = axis.begin()->first;
  const int hi = axis.rbegin()->first;
  long best = -1;
  for (int position = lo; position <= hi; ++position) {
    const long sum = axis.count(position) != 0 ? axis[position] : 0;
    if (sum > best) {
      best = sum;
      result.center = position;
    }
  }
  for (int j = 0; j < kWindowSamples; ++j) {
    const int position = static_cast<int>(result.center) - 8 + j;
    const long sum = axis.count(position) != 0 ? axis[position] : 0;
    result.out[static_cast<std::size_t>(j)] = static_cast<std::uint16_t>(sum >= 4096 ? 4095 : sum);
  }
}

inline SlowMerge SlowMergeOnAxis(const std::vector<SlowWindow>& windows) {
  SlowMerge result;
  if (windows.size() < 2) return result;
  if (windows.size() == 2 && std::abs(windows[0].address - windows[1].address) >= 17) return result;
  SlowSum(windows, result);
  return result;
}

inline SlowMerge SlowPickFour(const std::array<SlowWindow, 4>& windows) {
  SlowMerge result;
  std::set<int> chosen;
  int chosen_spread = 1 << 20;
  bool all_four = false;
  // The triples by the source they leave out, in ascending order of their members.
  for (const int left_out : {3, 2, 1, 0}) {
    std::vector<int> addresses;
    std::set<int> members;
    for (int i = 0; i < 4; ++i) {
      if (i == left_out) continue;
      members.insert(i);
      addresses.push_back(windows[static_cast<std::size_t>(i)].address);
    }
    std::sort(addresses.begin(), addresses.end());
    if (addresses[1] - addresses[0] >= 17 || addresses[2] - addresses[1] >= 17) continue;
    for (const int address : addresses) {
      const int fourth = windows[static_cast<std::size_t>(left_out)].address;
      if (std::abs(address - fourth) < 17) all_four = true;
    }
    if (addresses[2] - addresses[0] < chosen_spread) {
      chosen_spread = addresses[2] - addresses[0];
      chosen = members;
    }
  }
  if (all_four) chosen = {0, 1, 2, 3};
  if (chosen.empty()) return result;
  std::vector<SlowWindow> used;
  for (const int i : chosen) used.push_back(windows[static_cast<std::size_t>(i)]);
  SlowSum(used, result);
  result.sources = chosen;
  return result;
}

inline SlowWindow SlowWindowOf(const LidarPoint& point, int slot) {
  return {point.echoes[slot].bins, static_cast<int>(point.echoes[slot].peak_addr & 0xFFF)};
}

template <class Field>
inline float SlowMean(const std::vector<LidarPoint>& points, const std::set<int>& sources,
                      Field field) {
  double sum = 0.0;
  for (const int i : sources) sum += field(points[static_cast<std::size_t>(i)]);
  return static_cast<float>(sum / static_cast<double>(sources.size()));
}

inline void SlowMeans(const std::vector<LidarPoint>& points, const std::set<int>& sources,
                      LidarPoint& result) {
  result.pixel_word22 = SlowMean(points, sources, [](auto& p) { return p.pixel_word22; });
  result.pixel_word11 = SlowMean(points, sources, [](auto& p) { return p.pixel_word11; });
  result.echoes[0].echosum = SlowMean(points, sources, [](auto& p) { return p.echoes[0].echosum; });
  result.echoes[0].totsum = SlowMean(points, sources, [](auto& p) { return p.echoes[0].totsum; });
  result.echoes[0].noise = SlowMean(points, sources, [](auto& p) { return p.echoes[0].noise; });
}

inline int SlowStore(const SlowMerge& merge, std::size_t divisor, LidarEcho& echo) {
  int sum = 0;
  for (std::size_t j = 0; j < kWindowSamples; ++j) {
    echo.bins[j] = static_cast<std::uint16_t>(merge.out[j] / divisor);
    sum += echo.bins[j];
  }
  echo.peak_addr = static_cast<std::int32_t>(((merge.center % 4096) + 4096) % 4096);
  return sum;
}

inline LidarPoint SlowMergeTwo(const std::vector<LidarPoint>& points) {
  LidarPoint result;
  bool merged[2] = {false, false};
  int sums[2] = {0, 0};
  for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
    const SlowWindow a = SlowWindowOf(points[0], slot);
    const SlowWindow b = SlowWindowOf(points[1], slot);
    if (std::abs(a.address - b.address) > 16) continue;
    merged[slot] = true;
    sums[slot] = SlowStore(SlowMergeOnAxis({a, b}), 2, result.echoes[slot]);
  }
  if (!merged[0] && !merged[1]) return result;
  SlowMeans(points, {0, 1}, result);
  for (int slot = 0; slot < 2; ++slot) {
    if (merged[slot]) result.echoes[slot].totsum = static_cast<float>(sums[slot]);
  }
  return result;
}

inline LidarPoint SlowMergeFour(const std::vector<LidarPoint>& points) {
  LidarPoint result;
  std::set<int> all;
  int sum = 0;
  for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
    const SlowMerge merge =
        SlowPickFour({SlowWindowOf(points[0], slot), SlowWindowOf(points[1], slot),
                      SlowWindowOf(points[2], slot), SlowWindowOf(points[3], slot)});
    all.insert(merge.sources.begin(), merge.sources.end());
    if (merge.sources.empty()) continue;
    sum = SlowStore(merge, merge.sources.size(), result.echoes[slot]);
  }
  if (all.size() < 3) return LidarPoint{};
  if (LidarPoint::echo_num == 1) {
    SlowMeans(points, all, result);
    result.echoes[0].totsum = static_cast<float>(sum);
    return result;
  }
  std::set<int> counted;
  for (const int i : all) {
    if (points[static_cast<std::size_t>(i)].echoes[0].dist_raw > 0.0F) counted.insert(i);
  }
  SlowMeans(points, counted.empty() ? all : counted, result);
  return result;
}

}  // namespace kerul::lidar::merge_test
