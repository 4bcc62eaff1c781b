#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/packet_lanes.h"

namespace kerul::lidar {

int DecodeBlocksAvx2(const PacketContext& context, const std::uint8_t* blocks,
                     LidarPoint* points) noexcept {
  return PacketKernel<8>::Decode(context, blocks, points);
}

}  // namespace kerul::lidar
