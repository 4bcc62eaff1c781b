// What an echo was when its packet left it: with a range, or why without one.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::story {

enum class Arrival : std::uint8_t {
  kNoPacket,       // none came for the pixel in this frame
  kNoWindow,       // the packet says that there is no window
  kNoPulse,        // the window's centre is not above the baseline
  kBelowLevel,     // a pulse with a peak ratio up to the near miss
  kTooWide,        // a pulse dropped for its width and height
  kNoCalibration,  // the pixel's offset or scale is 0
  kTooWeak,        // its reflectivity is below the least at its range
  kNoRange,        // the range is no number above 0
  kRange
};

// `parsed` as the parser gave it, `calibrated` as it goes into the frame; pixel_is_calibrated: no
// table that is in use has a 0 for it.
Arrival ArrivalOf(const LidarEcho& parsed, const LidarEcho& calibrated,
                  bool pixel_is_calibrated) noexcept;

}  // namespace kerul::lidar::story
