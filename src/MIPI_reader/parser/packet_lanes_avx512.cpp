#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/packet_lanes.h"

namespace kerul::lidar {

int DecodeBlocksAvx512(const PacketContext& context, const std::uint8_t* blocks,
                       LidarPoint* points) noexcept {
  const int last_pixel_id = PacketKernel<16>::Decode(context, blocks, points);
  LeaveWideVectors();
  return last_pixel_id;
}

}  // namespace kerul::lidar
