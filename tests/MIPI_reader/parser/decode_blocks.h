// The packet decoding in the form that is in force, without the parser around it.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/packet_decoding.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {

inline int DecodeBlocksInForce(const PacketContext& context, const std::uint8_t* blocks,
                               LidarPoint* points) noexcept {
  constexpr VectorForms<decltype(&DecodeBlocks)> kForms{DecodeBlocksPlain, DecodeBlocksAvx2,
                                                        DecodeBlocksAvx512};
  const auto form = kForms.Chosen();
  return form != nullptr ? form(context, blocks, points) : DecodeBlocks(context, blocks, points);
}

}  // namespace kerul::lidar
