// What the parser's settings and a packet's header make of the nine pixels of the packet.
#pragma once

#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/raw_packet.h"

namespace kerul::lidar {

// echo_count: windows to decode per pixel; at most 2 are. Refers to the parser's tables, which must
// stay as they are. A group after the table of shots counts 160 shots.
PacketContext ContextOf(const LidarParserQDV11& parser, const RawHeader& header,
                        int echo_count) noexcept;

}  // namespace kerul::lidar
