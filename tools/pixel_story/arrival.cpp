#include "pixel_story/arrival.h"

#include "MIPI_reader/parser/echo_rules.h"

namespace kerul::lidar::story {

Arrival ArrivalOf(const LidarEcho& parsed, const LidarEcho& calibrated,
                  bool pixel_is_calibrated) noexcept {
  if (calibrated.dist_raw > 0.0F) return Arrival::kRange;
  // Only a slot that the parser left alone has passed the detection with a ratio of 0.
  if (parsed.detect_pass && parsed.peak_ratio == 0.0F) return Arrival::kNoWindow;
  if (!parsed.detect_pass && !(parsed.peak_ratio > 0.0F)) return Arrival::kNoPulse;
  if (!parsed.detect_pass && !(parsed.peak_ratio > echo_computation::kNearMissRatio))
    return Arrival::kBelowLevel;
  const bool has_high_width = (parsed.cogw_flag & cogw_flags::kHighWidthValid) != 0;
  if (parsed.dist_raw == 0.0F && has_high_width) return Arrival::kTooWide;
  if (!pixel_is_calibrated) return Arrival::kNoCalibration;
  // Power and reflectivity come together, and only the floor of the reflectivity takes one alone.
  if (calibrated.power != 0.0F && calibrated.refl_raw == 0.0F) return Arrival::kTooWeak;
  return Arrival::kNoRange;
}

}  // namespace kerul::lidar::story
