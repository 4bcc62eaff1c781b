// Bit-for-bit comparison of point records, field by field, because the records have padding. One
// NaN is as good as another.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

inline bool SameBitsOrNan(float a, float b) {
  if (std::isnan(a) && std::isnan(b)) return true;
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

// Name of the first field in which the echoes differ, or null.
inline const char* FirstDifference(const LidarEcho& a, const LidarEcho& b) {
  struct FloatField {
    const char* name;
    float LidarEcho::*field;
  };
  static constexpr FloatField kFloats[] = {
      {"dist_raw", &LidarEcho::dist_raw},
      {"refl_raw", &LidarEcho::refl_raw},
      {"dist_proc", &LidarEcho::dist_proc},
      {"refl_proc", &LidarEcho::refl_proc},
      {"cogh", &LidarEcho::cogh},
      {"cogw", &LidarEcho::cogw},
      {"cogw_high", &LidarEcho::cogw_high},
      {"waveform_rms_ratio", &LidarEcho::waveform_rms_ratio},
      {"conf", &LidarEcho::conf},
      {"echosum", &LidarEcho::echosum},
      {"totsum", &LidarEcho::totsum},
      {"peak", &LidarEcho::peak},
      {"peak_ratio", &LidarEcho::peak_ratio},
      {"power", &LidarEcho::power},
      {"noise", &LidarEcho::noise},
      {"baseline", &LidarEcho::baseline},
      {"change_noise_noise_append", &LidarEcho::change_noise_noise_append},
      {"timming_th", &LidarEcho::timming_th},
      {"ground_refl_scale", &LidarEcho::ground_refl_scale},
  };
  for (const FloatField& entry : kFloats) {
    if (!SameBitsOrNan(a.*entry.field, b.*entry.field)) return entry.name;
  }
  if (a.cogw_flag != b.cogw_flag) return "cogw_flag";
  if (a.peak_addr != b.peak_addr) return "peak_addr";
  if (a.echo_flags != b.echo_flags) return "echo_flags";
  if (a.highRefl != b.highRefl) return "highRefl";
  if (a.highReflBlooming != b.highReflBlooming) return "highReflBlooming";
  if (a.afterPulse != b.afterPulse) return "afterPulse";
  if (a.debug_flag != b.debug_flag) return "debug_flag";
  if (a.ground != b.ground) return "ground";
  if (a.fill_point != b.fill_point) return "fill_point";
  if (a.shot_noise_point != b.shot_noise_point) return "shot_noise_point";
  if (a.shot_noise_group_point != b.shot_noise_group_point) return "shot_noise_group_point";
  if (a.detect_pass != b.detect_pass) return "detect_pass";
  if (a.bins != b.bins) return "bins";
  return nullptr;
}

inline ::testing::AssertionResult SameRecord(const LidarPoint& a, const LidarPoint& b) {
  if (a.row != b.row || a.col != b.col || !SameBitsOrNan(a.pixel_word22, b.pixel_word22) ||
      !SameBitsOrNan(a.pixel_word11, b.pixel_word11) ||
      !SameBitsOrNan(a.shot_times, b.shot_times) || !SameBitsOrNan(a.shot_ratio, b.shot_ratio) ||
      !SameBitsOrNan(a.detect_threshold, b.detect_threshold)) {
    return ::testing::AssertionFailure() << "the points' own fields differ";
  }
  for (int slot = 0; slot < kEchoSlots; ++slot) {
    if (const char* field = FirstDifference(a.echoes[slot], b.echoes[slot])) {
      return ::testing::AssertionFailure() << field << " of slot " << slot << " differs";
    }
  }
  return ::testing::AssertionSuccess();
}

}  // namespace kerul::lidar
