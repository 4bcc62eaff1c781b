// Decoding of the nine pixel blocks of a raw packet, in the forms for the instruction sets.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/echo_computation.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/packet_planes.h"

namespace kerul::lidar {

// What the nine pixels of a packet share.
struct PacketContext {
  EchoSettings settings;
  const std::uint16_t* threshold_bins;  // detection level by noise
  int threshold_count;                  // 0 without such a table
  float shot_times;
  float shot_ratio;
  int first_row;   // of the packet's pixels, for pixel id 0
  int first_col;   // likewise
  int echo_count;  // windows to decode per pixel, at most 2
};

// Each resets the echo slots in use of nine points as LidarPoint::ResetEchoes does, decodes the
// blocks into them, writing every record once, and gives the pixel id of the last block. `blocks`
// are nine blocks of 72 bytes.
//
// The scalar form takes any echo_count; the others need 0 <= echo_count <= LidarPoint::echo_num,
// because a slot that is decoded without having been reset keeps fields of its earlier content.
int DecodeBlocks(const PacketContext& context, const std::uint8_t* blocks,
                 LidarPoint* points) noexcept;
int DecodeBlocksPlain(const PacketContext& context, const std::uint8_t* blocks,
                      LidarPoint* points) noexcept;
int DecodeBlocksAvx2(const PacketContext& context, const std::uint8_t* blocks,
                     LidarPoint* points) noexcept;
int DecodeBlocksAvx512(const PacketContext& context, const std::uint8_t* blocks,
                       LidarPoint* points) noexcept;

// The same into planes, which hold no bins.
int DecodePacketPlain(const PacketContext& context, const std::uint8_t* blocks,
                      PacketPlanes& planes) noexcept;
int DecodePacketAvx2(const PacketContext& context, const std::uint8_t* blocks,
                     PacketPlanes& planes) noexcept;
int DecodePacketAvx512(const PacketContext& context, const std::uint8_t* blocks,
                       PacketPlanes& planes) noexcept;

// Writes pixel i of nine to *places[i]: the whole record, as if a new point had been decoded and
// calibrated, in this order: of several pixels for one place, the last stays. In the form that made
// the planes.
void StorePacket(const PacketPlanes& planes, LidarPoint* const* places) noexcept;
void StorePacketPlain(const PacketPlanes& planes, LidarPoint* const* places) noexcept;
void StorePacketAvx2(const PacketPlanes& planes, LidarPoint* const* places) noexcept;
void StorePacketAvx512(const PacketPlanes& planes, LidarPoint* const* places) noexcept;

}  // namespace kerul::lidar
