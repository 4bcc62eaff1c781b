// The parser room's kernels for AVX-512.
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/packet_decoding_lanes.h"
#include "MIPI_reader/parser/point_block_lanes.h"

namespace kerul::lidar {

int DecodeBlocksAvx512(const PacketContext& context, const std::uint8_t* blocks,
                       LidarPoint* points) noexcept {
  const int last_pixel_id = PacketKernel<16>::DecodePoints(context, blocks, points);
  LeaveWideVectors();
  return last_pixel_id;
}

int DecodePacketAvx512(const PacketContext& context, const std::uint8_t* blocks,
                       PacketPlanes& planes) noexcept {
  const int last_pixel_id = PacketKernel<16>::Decode(context, blocks, planes);
  LeaveWideVectors();
  return last_pixel_id;
}

void StorePacketAvx512(const PacketPlanes& planes, LidarPoint* const* places) noexcept {
  PacketRecords<16, true>::Store(planes, places);
  LeaveWideVectors();
}

void WriteBlockAvx512(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept {
  PointBlockKernel<16>::Write(block, echo, bytes);
}

}  // namespace kerul::lidar
