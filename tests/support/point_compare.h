// Point records compared field by field; the bytes between fields have no meaning.
//
// Equal means the same bits, but every NaN equals every other: an operation on two NaNs gives the
// first one's payload and sign, and a compiler is free to swap the operands of a sum or product, so
// that equal computations differ there. Nothing published depends on it.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ios>
#include <sstream>
#include <string>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::testing {

inline bool SameValue(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
         (std::isnan(a) && std::isnan(b));
}

// Collects the first field that differs.
class FieldComparison {
 public:
  void Float(const char* field, float got, float expected) {
    if (SameValue(got, expected) || !text_.empty()) return;
    std::ostringstream text;
    text.precision(9);
    text << field << " is " << got << " (0x" << std::hex << std::bit_cast<std::uint32_t>(got)
         << "), expected " << std::dec << expected << " (0x" << std::hex
         << std::bit_cast<std::uint32_t>(expected) << ")";
    text_ = text.str();
  }
  void Integer(const char* field, std::int64_t got, std::int64_t expected) {
    if (got == expected || !text_.empty()) return;
    text_ = std::string(field) + " is " + std::to_string(got) + ", expected " +
            std::to_string(expected);
  }
  void Prefix(const std::string& prefix) {
    if (!text_.empty()) text_ = prefix + text_;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

inline std::string EchoDifference(const LidarEcho& got, const LidarEcho& expected) {
  if (std::memcmp(&got, &expected, sizeof(got)) == 0) return {};
  FieldComparison c;
  c.Float("dist_raw", got.dist_raw, expected.dist_raw);
  c.Float("refl_raw", got.refl_raw, expected.refl_raw);
  c.Float("dist_proc", got.dist_proc, expected.dist_proc);
  c.Float("refl_proc", got.refl_proc, expected.refl_proc);
  c.Float("cogh", got.cogh, expected.cogh);
  c.Float("cogw", got.cogw, expected.cogw);
  c.Float("cogw_high", got.cogw_high, expected.cogw_high);
  c.Float("waveform_rms_ratio", got.waveform_rms_ratio, expected.waveform_rms_ratio);
  c.Float("conf", got.conf, expected.conf);
  c.Float("echosum", got.echosum, expected.echosum);
  c.Float("totsum", got.totsum, expected.totsum);
  c.Integer("echo_flags", got.echo_flags, expected.echo_flags);
  c.Integer("cogw_flag", got.cogw_flag, expected.cogw_flag);
  c.Float("peak", got.peak, expected.peak);
  c.Float("peak_ratio", got.peak_ratio, expected.peak_ratio);
  c.Integer("peak_addr", got.peak_addr, expected.peak_addr);
  c.Float("power", got.power, expected.power);
  c.Float("noise", got.noise, expected.noise);
  c.Float("baseline", got.baseline, expected.baseline);
  c.Float("change_noise_noise_append", got.change_noise_noise_append,
          expected.change_noise_noise_append);
  c.Float("timming_th", got.timming_th, expected.timming_th);
  c.Integer("highRefl", got.highRefl, expected.highRefl);
  c.Integer("highReflBlooming", got.highReflBlooming, expected.highReflBlooming);
  c.Integer("afterPulse", got.afterPulse, expected.afterPulse);
  c.Integer("debug_flag", got.debug_flag, expected.debug_flag);
  c.Integer("ground", got.ground, expected.ground);
  c.Integer("fill_point", got.fill_point, expected.fill_point);
  c.Integer("shot_noise_point", got.shot_noise_point, expected.shot_noise_point);
  c.Float("ground_refl_scale", got.ground_refl_scale, expected.ground_refl_scale);
  c.Integer("shot_noise_group_point", got.shot_noise_group_point, expected.shot_noise_group_point);
  c.Integer("detect_pass", got.detect_pass, expected.detect_pass);
  for (std::size_t i = 0; i < got.bins.size(); ++i) {
    c.Integer("bins", got.bins[i], expected.bins[i]);
  }
  return c.text();
}

// Empty when equal, else the first field that differs. Slots that are not in use count too.
inline std::string PointDifference(const LidarPoint& got, const LidarPoint& expected) {
  if (std::memcmp(&got, &expected, sizeof(got)) == 0) return {};
  FieldComparison c;
  c.Integer("row", got.row, expected.row);
  c.Integer("col", got.col, expected.col);
  c.Float("pixel_word22", got.pixel_word22, expected.pixel_word22);
  c.Float("pixel_word11", got.pixel_word11, expected.pixel_word11);
  c.Float("shot_times", got.shot_times, expected.shot_times);
  c.Float("shot_ratio", got.shot_ratio, expected.shot_ratio);
  c.Float("detect_threshold", got.detect_threshold, expected.detect_threshold);
  if (!c.text().empty()) return c.text();
  for (int echo = 0; echo < kEchoSlots; ++echo) {
    const std::string difference = EchoDifference(got.echoes[echo], expected.echoes[echo]);
    if (!difference.empty()) return "echo " + std::to_string(echo) + " " + difference;
  }
  return {};
}

inline std::string FrameDifference(const LidarFrame& got, const LidarFrame& expected) {
  FieldComparison c;
  c.Integer("height", got.height, expected.height);
  c.Integer("width", got.width, expected.width);
  c.Integer("echo_num", got.echo_num, expected.echo_num);
  c.Integer("received_count", got.received_count, expected.received_count);
  c.Integer("frame_id", got.frame_id, expected.frame_id);
  c.Integer("mask", got.pixel_mask == expected.pixel_mask, 1);
  if (!c.text().empty()) return c.text();
  for (std::size_t row = 0; row < got.points.size(); ++row) {
    for (std::size_t col = 0; col < got.points[row].size(); ++col) {
      const std::string difference =
          PointDifference(got.points[row][col], expected.points[row][col]);
      if (difference.empty()) continue;
      return "pixel row " + std::to_string(row) + ", column " + std::to_string(col) + ": " +
             difference;
    }
  }
  return {};
}

}  // namespace kerul::lidar::testing
