// The numbers of the echo computation, for its scalar and its vector form.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::echo_computation {

inline constexpr float kMetresPerBin = 0.15F;
inline constexpr std::uint16_t kSampleMask = 0xFFF;  // a sample has 12 bits

// The three-bin sums with a zero at each end, so that every edge search ends.
inline constexpr int kSums = 17;
inline constexpr int kCentre = 8;  // the pulse is taken to lie at sample 8
static_assert(kSums == kWindowSamples && kCentre == kWindowSamples / 2);

// Baseline adaptation. baseline = 3 * shots * noise / kNoisePerLevel.
inline constexpr float kNominalShots = 160.0F;
inline constexpr float kNoisePerLevel = 2048.0F;
inline constexpr float kBrightRise = 7.0F;  // level units at 160 shots; above: highRefl

inline constexpr float kSureRatio = 1.0F;        // peak ratio above which an echo is detected
inline constexpr float kNearMissRatio = 0.7F;    // peak ratio up to which a window is no echo
inline constexpr float kCurveTolerance = 0.1F;   // bins
inline constexpr float kDropWidth = 1.0F;        // bins above the high curve: too wide for any use
inline constexpr float kDropHeight = 80.0F;      // level units; such a width and this high: dropped
inline constexpr float kMinCurvature = -1e-12F;  // of the parabola; above: no peak
inline constexpr float kMaxShift = 1.0F;         // samples from the centre to the vertex

}  // namespace kerul::lidar::echo_computation
