// The parser room's kernels for every x86-64 processor.
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/packet_decoding_lanes.h"
#include "MIPI_reader/parser/point_block_lanes.h"

namespace kerul::lidar {

int DecodeBlocksPlain(const PacketContext& context, const std::uint8_t* blocks,
                      LidarPoint* points) noexcept {
  return PacketKernel<4>::DecodePoints(context, blocks, points);
}

int DecodePacketPlain(const PacketContext& context, const std::uint8_t* blocks,
                      PacketPlanes& planes) noexcept {
  return PacketKernel<4>::Decode(context, blocks, planes);
}

void StorePacketPlain(const PacketPlanes& planes, LidarPoint* const* places) noexcept {
  PacketRecords<4, true>::Store(planes, places);
}

void WriteBlockPlain(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept {
  PointBlockKernel<4>::Write(block, echo, bytes);
}

}  // namespace kerul::lidar
