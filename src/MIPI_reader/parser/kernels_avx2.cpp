// The parser room's kernels for AVX2.
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/packet_decoding_lanes.h"
#include "MIPI_reader/parser/point_block_lanes.h"
#include "MIPI_reader/parser/record_copy.h"

namespace kerul::lidar {

int DecodeBlocksAvx2(const PacketContext& context, const std::uint8_t* blocks,
                     LidarPoint* points) noexcept {
  const int last_pixel_id = PacketKernel<8>::DecodePoints(context, blocks, points);
  LeaveWideVectors();
  return last_pixel_id;
}

int DecodePacketAvx2(const PacketContext& context, const std::uint8_t* blocks,
                     PacketPlanes& planes) noexcept {
  const int last_pixel_id = PacketKernel<8>::Decode(context, blocks, planes);
  LeaveWideVectors();
  return last_pixel_id;
}

void StorePacketAvx2(const PacketPlanes& planes, LidarPoint* const* places) noexcept {
  PacketRecords<8, true>::Store(planes, places);
  LeaveWideVectors();
}

void WriteBlockAvx2(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept {
  PointBlockKernel<8>::Write(block, echo, bytes);
}

void CopyPointsAvx2(const LidarPoint* from, LidarPoint* const* to, int count) noexcept {
  for (int i = 0; i < count; ++i) CopyRecord<32>(*to[i], from[i]);
  LeaveWideVectors();
}

}  // namespace kerul::lidar
