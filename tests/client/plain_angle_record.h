// An angle record without distortion and tilt, so that angles follow from the places by hand.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "kerul_lidar/angle_calib.h"

namespace kerul::lidar {

// The pixel of row 108 and column 144 looks straight ahead; a column is 2 / 340 rad.
inline QndrAngleDatRecord PlainRecord() {
  QndrAngleDatRecord record{};
  record.binning = 0x22;
  record.rows = 216;
  record.cols = 288;
  record.f = 340.0F;
  record.cx = 289.0F;
  record.cy = 286.0F;
  return record;
}

inline std::vector<std::uint8_t> BytesOf(const QndrAngleDatRecord& record) {
  std::vector<std::uint8_t> bytes(78);
  std::memcpy(bytes.data(), &record, 78);
  return bytes;
}

}  // namespace kerul::lidar
