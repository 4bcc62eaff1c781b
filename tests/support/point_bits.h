// Equality of point records bit for bit, without the bytes between their fields.
#pragma once

#include <array>
#include <bit>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

inline bool SameBits(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

template <class Record, std::size_t Count>
bool SameFloats(const Record& a, const Record& b,
                const std::array<float Record::*, Count>& fields) {
  for (const auto field : fields) {
    if (!SameBits(a.*field, b.*field)) return false;
  }
  return true;
}

inline bool SameBits(const LidarEcho& a, const LidarEcho& b) {
  using E = LidarEcho;
  static constexpr std::array kFloats{&E::dist_raw,
                                      &E::refl_raw,
                                      &E::dist_proc,
                                      &E::refl_proc,
                                      &E::cogh,
                                      &E::cogw,
                                      &E::cogw_high,
                                      &E::waveform_rms_ratio,
                                      &E::conf,
                                      &E::echosum,
                                      &E::totsum,
                                      &E::peak,
                                      &E::peak_ratio,
                                      &E::power,
                                      &E::noise,
                                      &E::baseline,
                                      &E::change_noise_noise_append,
                                      &E::timming_th,
                                      &E::ground_refl_scale};
  static constexpr std::array kFlags{
      &E::highRefl,   &E::highReflBlooming, &E::afterPulse,       &E::debug_flag,
      &E::ground,     &E::fill_point,       &E::shot_noise_point, &E::shot_noise_group_point,
      &E::detect_pass};
  for (const auto flag : kFlags) {
    if (a.*flag != b.*flag) return false;
  }
  return SameFloats(a, b, kFloats) && a.echo_flags == b.echo_flags && a.cogw_flag == b.cogw_flag &&
         a.peak_addr == b.peak_addr && a.bins == b.bins;
}

inline bool SameBits(const LidarPoint& a, const LidarPoint& b) {
  using P = LidarPoint;
  static constexpr std::array kFloats{&P::pixel_word22, &P::pixel_word11, &P::shot_times,
                                      &P::shot_ratio, &P::detect_threshold};
  return a.row == b.row && a.col == b.col && SameFloats(a, b, kFloats) &&
         SameBits(a.echoes[0], b.echoes[0]) && SameBits(a.echoes[1], b.echoes[1]);
}

}  // namespace kerul::lidar
