// What the spilled power does to an echo.
#pragma once

#include <algorithm>

#include "MIPI_reader/node/bloom/bloom_trace.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar::bloom {

inline constexpr float kMinEnergyGate = 0.6F;
inline constexpr float kMaxEnergyGate = 1.4F;
// An echo left with less than this share of its power, or this reflectivity, is erased.
inline constexpr float kMinPowerRatio = 0.05F;
inline constexpr float kMinReflectivity = 1.0F;

// A score that is negative or NaN is none.
inline float EnergyGate(float score, const BloomSuppressCalib& calib) noexcept {
  if (!(score >= 0.0F)) return 1.0F;
  return std::clamp(score * calib.pattern_gain + calib.pattern_offset, kMinEnergyGate,
                    kMaxEnergyGate);
}

inline void CompleteSpill(const BloomSuppressCalib& calib, const BloomBlockGains& gains,
                          BloomSpill& spill) noexcept {
  spill.gate_energy = EnergyGate(spill.pattern_score, calib);
  spill.filterpower_psf = spill.psf_sum * calib.psf_coeff;
  spill.final_filterpower =
      spill.gate_energy * spill.filterpower_psf * gains.dist_std * gains.edge_neighbor;
}

inline void Erase(LidarEcho& echo) noexcept {
  echo.dist_proc = 0.0F;
  echo.refl_proc = 0.0F;
}

inline BloomOutcome TakeOffSpill(LidarEcho& echo, float final_filterpower) noexcept {
  BloomOutcome outcome;
  outcome.pr = echo.power - final_filterpower;
  // Negated so that a NaN erases.
  if (!(outcome.pr > 0.0F) || !(echo.power > 0.0F)) {
    Erase(echo);
    return outcome;
  }
  // A negative spill, from the tails of the tables, makes the ratio exceed 1. Deliberate.
  outcome.ratio = outcome.pr / echo.power;
  outcome.action = BloomAction::kScaleRefl;
  echo.refl_proc *= outcome.ratio;
  outcome.refl = echo.refl_proc;
  if (echo.refl_proc < kMinReflectivity || outcome.ratio <= kMinPowerRatio) {
    outcome.action = BloomAction::kZeroByRatioOrRefl;
    Erase(echo);
  }
  return outcome;
}

}  // namespace kerul::lidar::bloom
