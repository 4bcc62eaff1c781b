// A frame of no returns, on which a test sets what it is about.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "kerul_lidar/frame.h"
#include "kerul_lidar/point_payload.h"

namespace kerul::lidar::ros {

// The k-th miniflash row was published k milliseconds after the first one.
inline Frame EmptyFrame(int echoes = 1) {
  Frame frame;
  frame.echoes = echoes;
  frame.output_mode = 12;
  frame.carries = CarriedFields(12);
  frame.first_timestamp_us = 1'700'000'000'250'000;
  for (std::size_t k = 0; k < 36; ++k) {
    frame.row_timestamp_us[k] = frame.first_timestamp_us + static_cast<std::int64_t>(1000 * k);
  }
  frame.x_m.assign(2 * 216 * 288, NAN);
  frame.y_m.assign(2 * 216 * 288, NAN);
  frame.z_m.assign(2 * 216 * 288, NAN);
  return frame;
}

// Puts a return `range_m` straight ahead.
inline void SetReturn(Frame& frame, int echo, int row, int col, float range_m,
                      std::uint8_t reflectivity = 0, std::uint16_t flags = 0) {
  const std::size_t place = Frame::Index(echo, row, col);
  frame.range_m[place] = range_m;
  frame.reflectivity[place] = reflectivity;
  frame.payload[3 * place] = reflectivity;
  frame.flags[place] = flags;
  frame.x_m[place] = range_m;
  frame.y_m[place] = 0.0F;
  frame.z_m[place] = 0.0F;
}

}  // namespace kerul::lidar::ros
