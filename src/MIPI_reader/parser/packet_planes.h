// A packet on its way into the frame: its nine pixels and their echo windows, a plane a field. The
// decoding fills it, the calibration works on it, and then each pixel's record is written once.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Fields and units are those of LidarPoint and LidarEcho. Planes are as long as whole vectors;
// entries after the last pixel or window hold anything. Masks are all ones or all zeros.
struct PacketPlanes {
  static constexpr int kPixels = 16;
  static constexpr int kWindows = kPixels * kEchoSlots;

  // ---- By pixel ----
  int pixel_count;
  float shot_times;  // of all pixels
  float shot_ratio;
  alignas(64) std::int32_t row[kPixels];
  std::int32_t col[kPixels];
  float pixel_word22[kPixels];
  float pixel_word11[kPixels];
  float detect_threshold[kPixels];
  float noise[kPixels];     // as received, before a baseline adaptation
  float baseline[kPixels];  // likewise

  // Windows of slot 1 without a pulse, which most are. All their other fields are zero.
  std::int32_t no_pulse[kPixels];  // mask: there is such a window
  std::int32_t no_pulse_peak_addr[kPixels];
  float no_pulse_peak[kPixels];
  float no_pulse_peak_ratio[kPixels];

  // ---- By window, in a list of those that may hold a pulse, the ones of slot 0 first ----
  int window_count;
  std::uint32_t windows_of_pixels[kEchoSlots];  // a bit for each pixel whose window is in the list
  alignas(64) std::int32_t window[kWindows];    // kPixels * slot + pixel
  float dist_raw[kWindows];
  float refl_raw[kWindows];
  float cogh[kWindows];
  float cogw[kWindows];
  float cogw_high[kWindows];
  float waveform_rms_ratio[kWindows];
  std::int32_t cogw_flag[kWindows];
  float peak[kWindows];
  float peak_ratio[kWindows];
  std::int32_t peak_addr[kWindows];
  float power[kWindows];
  float window_noise[kWindows];
  float window_baseline[kWindows];
  float change_noise_noise_append[kWindows];
  std::int32_t highRefl[kWindows];     // mask
  std::int32_t afterPulse[kWindows];   // mask
  std::int32_t detect_pass[kWindows];  // mask
};

// An echo's fields to entry `at` of the list, all but the window's number.
void TakeEcho(const LidarEcho& echo, int at, PacketPlanes& planes) noexcept;

// A bit for each pixel whose echo 0 has highRefl.
std::uint32_t BrightPixels(const PacketPlanes& planes) noexcept;

}  // namespace kerul::lidar
