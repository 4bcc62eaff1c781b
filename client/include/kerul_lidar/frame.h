// A whole frame as a plain record: its identity, what is missing, and its points as contiguous
// planes that can be handed on without a copy.
//
// Every plane is [echo][row][col] with 2 x 216 x 288 places, whatever the number of echoes. An echo
// that is not published reads as no return. Frame::Index gives the place; PointCount() of them are
// in use.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kerul_lidar/directions.h"
#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/point_packet_layout.h"
#include "kerul_lidar/transform_param.h"

namespace kerul::lidar {

struct Frame {
  std::uint8_t id = 0;        // the sensor's count, modulo 256; the node's first frame is always 0
  int echoes = 1;             // 1 or 2
  int return_code = 0;        // which echoes are published, two decimal digits
  int output_mode = 0;        // a value of OutputMode, or a number without a name
  std::uint32_t carries = 0;  // payload_field bits: what the mode tells of a point

  // When the frame's first and last packet were built: the node's system clock, microseconds since
  // the epoch. A frame is published while it comes in, so the two are nearly a frame time apart.
  std::int64_t first_timestamp_us = 0;
  std::int64_t last_timestamp_us = 0;
  // The same of the first packet of each miniflash row, which is six rows of pixels; 0 where none
  // came. The node publishes a row when the next one is complete, so a little after it was
  // measured.
  std::array<std::int64_t, kBlockRows> row_timestamp_us{};

  // What is missing. None of it tells of raw packets that the node did not get: their pixels are
  // published as no return.
  int missing_blocks = 0;          // blocks of all echoes that did not come, of 1728 for each echo
  int missing_frames = 0;          // frame ids passed over since the frame before
  std::uint64_t lost_packets = 0;  // point packets that did not come since the frame before
  bool after_restart = false;      // the first frame of another node, or of a new ring

  std::vector<float> range_m;              // 0 is no return
  std::vector<std::uint8_t> reflectivity;  // 0..255; 0 where the mode does not carry it
  std::vector<std::uint16_t> flags;        // bit numbers of point_flag; see `known_flags`
  std::vector<std::uint8_t> payload;       // 3 bytes a place, as published (point_payload.h)
  // Metres, x ahead, y to the left, z up, after the mounting if one is set. NaN without return or
  // direction. Empty when no directions are known.
  std::vector<float> x_m;
  std::vector<float> y_m;
  std::vector<float> z_m;
  std::uint16_t known_flags = 0;  // the flags that the mode carries; the others are 0

  Frame();
  bool IsComplete() const noexcept { return missing_blocks == 0; }
  bool HasPoints() const noexcept { return !x_m.empty(); }
  std::size_t PointCount() const noexcept {
    return static_cast<std::size_t>(echoes) * kFrameRows * kFrameCols;
  }
  // `flag` is a bit number of point_flag.
  bool HasFlag(std::size_t place, int flag) const noexcept {
    return ((flags[place] >> flag) & 1) != 0;
  }
  static std::size_t Index(int echo, int row, int col) noexcept {
    return CollectedFrame::Index(echo, row, col);
  }
};

// Fills `frame` from a collected one, all but lost_packets and after_restart. `directions` may be
// null: no x, y, z then. `mount`, if not null, takes the points from the sensor's axes to the
// carrier's: rotation, then offset. Allocates the planes of x, y and z when they are first needed.
void FillFrame(const CollectedFrame& collected, const Directions* directions,
               const TransformParam* mount, Frame& frame);

}  // namespace kerul::lidar
