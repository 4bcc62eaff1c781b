#include "MIPI_reader/parser/point_block_lanes.h"

namespace kerul::lidar {

void WriteBlockPlain(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept {
  PointBlockKernel<4>::Write(block, echo, bytes);
}

}  // namespace kerul::lidar
