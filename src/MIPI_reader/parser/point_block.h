// The points of a block in OutputMode::kReflectivity, the mode published by default, in vector
// form.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/point_packet_encoder.h"

namespace kerul::lidar {

// Where each row of a block begins; six points follow from there.
struct BlockRows {
  const LidarPoint* rows[point_packet::kBlockSide];
};

// Writes the 180 bytes of the block's 36 points, echo slot `echo`, and nothing after them.
void WriteBlockPlain(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept;
void WriteBlockAvx2(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept;
void WriteBlockAvx512(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept;

}  // namespace kerul::lidar
