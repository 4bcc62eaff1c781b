// The ranking of a pixel's two echoes, which decides in what order they go out.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/rows/echo_ordering.h"
#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::echo_order {

// Level units; a second return has to be stronger to count.
inline constexpr float kMinSecondPeak = 15.0F;

enum Selector : std::int32_t { kPreferred = 1, kOther = 2, kSlot0 = 3, kSlot1 = 4 };

// What decided.
enum class RankRule : std::uint8_t { kOneValid, kNoneValid, kBloom, kNearer };

// Slots of the two echoes by rank; one and the same when only one of them is valid.
struct Ranking {
  int preferred = 0;
  int other = 0;
  RankRule rule = RankRule::kNoneValid;
};

inline Ranking RankEchoes(const LidarPoint& pixel) noexcept {
  const LidarEcho& first = pixel.echoes[0];
  const LidarEcho& second = pixel.echoes[1];
  const bool first_valid = first.dist_proc > 0.0F;
  const bool second_valid = second.dist_proc > 0.0F && second.peak > kMinSecondPeak;
  if (first_valid != second_valid) {
    return first_valid ? Ranking{0, 0, RankRule::kOneValid} : Ranking{1, 1, RankRule::kOneValid};
  }
  if (!first_valid) return {0, 1, RankRule::kNoneValid};
  const bool bloom_differs = first.highReflBlooming != second.highReflBlooming;
  const RankRule rule = bloom_differs ? RankRule::kBloom : RankRule::kNearer;
  const bool second_preferred =
      bloom_differs ? first.highReflBlooming : second.dist_proc < first.dist_proc;
  return second_preferred ? Ranking{1, 0, rule} : Ranking{0, 1, rule};
}

inline int SelectSlot(std::int32_t selector, const Ranking& ranking) noexcept {
  switch (selector) {
    case kOther:
      return ranking.other;
    case kSlot0:
      return 0;
    case kSlot1:
      return 1;
    default:
      return ranking.preferred;
  }
}

}  // namespace kerul::lidar::echo_order
