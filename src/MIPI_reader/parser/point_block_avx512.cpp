#include "MIPI_reader/parser/point_block_lanes.h"

namespace kerul::lidar {

void WriteBlockAvx512(const BlockRows& block, int echo, std::uint8_t* bytes) noexcept {
  PointBlockKernel<16>::Write(block, echo, bytes);
}

}  // namespace kerul::lidar
