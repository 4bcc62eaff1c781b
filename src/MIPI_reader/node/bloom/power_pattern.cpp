#include "MIPI_reader/node/bloom/power_pattern.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iostream>

#include "MIPI_reader/node/bloom/bloom_echo.h"

namespace kerul::lidar {
namespace {

using bloom::IsReturn;

constexpr float kNoScore = -1.0F;
constexpr int kReach = kPatternReach;

// Sums of squares about the mean, not divided by n. One pass: rounding may make a variance
// negative, which counts as 0, and so does a NaN.
struct Correlation {
  float mean_s = 0.0F;
  float mean_t = 0.0F;
  float var_s = 0.0F;
  float var_t = 0.0F;
  float denominator = 0.0F;
  float cov = 0.0F;
  float r = 0.0F;
  float score = kNoScore;
};

bool HasEchoSlot(const LidarFrame& frame, int echo) noexcept {
  return frame.height >= 1 && frame.width >= 1 && echo >= 0 && echo < frame.echo_num &&
         echo < kEchoSlots;
}

// The window's centre, clamped into the frame.
struct Center {
  int row;
  int col;
  float dist;
};

Center CenterOf(const LidarFrame& frame, int row, int col, int echo) noexcept {
  const int r = std::clamp(row, 0, frame.height - 1);
  const int c = std::clamp(col, 0, frame.width - 1);
  const LidarPoint& point = frame.points[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)];
  return {r, c, point.echoes[echo].dist_raw};
}

// The samples of the window around `center`, in scan order. Calls tell(row, col, echo record,
// expected) for each. A function of its own, so that the sums stay in registers.
template <class Tell>
[[gnu::noinline]] PatternSums SumSamples(
    const LidarFrame& frame, const Center& center, int echo,
    const float (&power_template)[kTemplateSide][kTemplateSide], float dist_gate,
    const Tell& tell) {
  PatternSums sums;
  const int end_row = std::min(center.row + kReach + 1, frame.height);
  const int end_col = std::min(center.col + kReach + 1, frame.width);
  for (int r = std::max(center.row - kReach, 0); r < end_row; ++r) {
    const LidarPoint* points = frame.points[static_cast<std::size_t>(r)].data();
    for (int c = std::max(center.col - kReach, 0); c < end_col; ++c) {
      const LidarEcho& at = points[c].echoes[echo];
      if (!IsReturn(at.dist_raw) || !std::isfinite(at.power)) continue;
      if (!(std::fabs(at.dist_raw - center.dist) < dist_gate)) continue;
      const float expected = power_template[r % kTemplateSide][c % kTemplateSide];
      sums.Add(at.power, expected);
      tell(r, c, at, expected);
    }
  }
  return sums;
}

Correlation Correlate(const PatternSums& sums) noexcept {
  const auto n = static_cast<float>(sums.n);
  Correlation result;
  result.mean_s = sums.s / n;
  result.mean_t = sums.t / n;
  result.var_s = std::max(0.0F, sums.ss - n * (result.mean_s * result.mean_s));
  result.var_t = std::max(0.0F, sums.tt - n * (result.mean_t * result.mean_t));
  result.denominator = std::sqrt(result.var_s) * std::sqrt(result.var_t);
  if (!(result.denominator > 0.0F)) return result;
  result.cov = sums.st - n * result.mean_s * result.mean_t;
  result.r = result.cov / result.denominator;
  const float score = (result.r + 1.0F) * 0.5F;
  // Powers near the end of the float range give NaN: no score then.
  result.score = std::isnan(score) ? kNoScore : std::clamp(score, 0.0F, 1.0F);
  return result;
}

void PrintSample(int row, int col, int echo, const LidarEcho& at, float expected) {
  std::cout << "[BloomDebug][pattern] sample=(" << row << "," << col << ")"
            << " echo=" << echo << " dist=" << at.dist_raw << " power=" << at.power
            << " T=" << expected << '\n';
}

void PrintScore(int n, const Correlation& c) {
  std::cout << "[BloomDebug][pattern] n=" << n << " mean_s=" << c.mean_s << " mean_t=" << c.mean_t
            << " cov=" << c.cov << " var_s=" << c.var_s << " var_t=" << c.var_t << " r=" << c.r
            << " score=" << c.score << '\n';
}

}  // namespace

float ScoreOf(const PatternSums& sums, int min_n) noexcept {
  if (sums.n < min_n) return kNoScore;
  return Correlate(sums).score;
}

float MatchPowerPattern(const LidarFrame& frame, int row, int col, int echo,
                        const float (&power_template)[kTemplateSide][kTemplateSide],
                        const BloomSuppressCalib& calib, bool debug) {
  if (!HasEchoSlot(frame, echo)) {
    if (debug) {
      std::cout << "[BloomDebug][pattern] skip=invalid_frame_or_echo"
                << " H=" << frame.height << " W=" << frame.width << " echo=" << echo
                << " echo_slot_count=" << frame.echo_num << '\n';
    }
    return kNoScore;
  }
  const Center center = CenterOf(frame, row, col, echo);
  if (!IsReturn(center.dist)) {
    if (debug) {
      std::cout << "[BloomDebug][pattern] skip=invalid_center_dist"
                << " row=" << row << " col=" << col << " echo=" << echo << " d0=" << center.dist
                << '\n';
    }
    return kNoScore;
  }
  const auto sum = [&](const auto& tell) {
    return SumSamples(frame, center, echo, power_template, calib.dist_gate_m, tell);
  };
  const auto print = [echo](int r, int c, const LidarEcho& at, float expected) {
    PrintSample(r, c, echo, at, expected);
  };
  const PatternSums sums = debug ? sum(print) : sum([](auto&&...) {});
  if (sums.n < calib.min_n) {
    if (debug) {
      std::cout << "[BloomDebug][pattern] skip=sample_not_enough"
                << " n=" << sums.n << " min_n=" << calib.min_n << '\n';
    }
    return kNoScore;
  }
  const Correlation correlation = Correlate(sums);
  if (!(correlation.denominator > 0.0F)) {
    if (debug) {
      std::cout << "[BloomDebug][pattern] skip=zero_denom"
                << " n=" << sums.n << " var_s=" << correlation.var_s
                << " var_t=" << correlation.var_t << '\n';
    }
    return kNoScore;
  }
  if (debug) PrintScore(sums.n, correlation);
  return correlation.score;
}

}  // namespace kerul::lidar
