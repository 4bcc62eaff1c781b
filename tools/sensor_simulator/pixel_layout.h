// Where a pixel stands: in the grid, in the raw packets, in the calibration tables.
#pragma once

#include <cstdint>

namespace kerul::lidar::simulator {

inline constexpr int kRows = 216;
inline constexpr int kCols = 288;
inline constexpr int kPixels = kRows * kCols;
inline constexpr int kGroups = 36;       // miniflash rows of six pixel rows
inline constexpr int kSlots = 4;         // column slots of a miniflash row
inline constexpr int kRuns = 6;          // runs of 72 pixel ids in a slot
inline constexpr int kSubpackets = 8;    // packets of a run
inline constexpr int kPacketPixels = 9;  // pixels of a packet
inline constexpr int kPixelIds = 432;    // pixel ids of a slot: kRuns * kSubpackets * 9
inline constexpr int kPacketsPerGroup = kSlots * kRuns * kSubpackets;  // 192
inline constexpr int kPacketsPerFrame = kGroups * kPacketsPerGroup;    // 6912
inline constexpr int kTableEntries = 288 * 288;  // pixel tables are sized for a square sensor

struct GridPlace {
  int row = 0;  // 0..215, row 0 looks down
  int col = 0;  // 0..287, column 0 looks left
};

// A packet's place in the frame, all zero-based.
struct PacketPlace {
  int group = 0;
  int slot = 0;
  int run = 0;
  int subpacket = 0;
};

constexpr int PixelIndex(int row, int col) noexcept { return row * kCols + col; }

// Twelve consecutive ids step through the columns at a distance of 24, nine groups of twelve fill
// a 3 x 3 block, and the rest moves on by three rows and three columns.
constexpr GridPlace PlaceOfPixelId(int group, int slot, int pixel_id) noexcept {
  const int cell = pixel_id / 12 % 9;
  return {cell % 3 + group * 6 + ((pixel_id / 108) & 1) * 3,
          cell / 3 + slot * 6 + (pixel_id % 12) * 24 + (pixel_id / 216) * 3};
}

// Packets in the order in which the sensor sends them.
constexpr PacketPlace PlaceOfPacket(int packet_index) noexcept {
  return {packet_index / kPacketsPerGroup, packet_index / 48 % kSlots, packet_index / 8 % kRuns,
          packet_index % kSubpackets};
}

// Id of the packet's block 0..8: nine consecutive ids, so that a run covers its 72 without a gap.
constexpr int PixelIdOfBlock(const PacketPlace& place, int block) noexcept {
  return place.run * 72 + place.subpacket * kPacketPixels + block;
}

// Entry of the per-pixel calibration tables: tile by tile, the 6 x 6 pixels of a tile column by
// column.
constexpr int TableIndex(int row, int col) noexcept {
  return (row / 6 * 48 + col / 6) * 36 + col % 6 * 6 + row % 6;
}

}  // namespace kerul::lidar::simulator
