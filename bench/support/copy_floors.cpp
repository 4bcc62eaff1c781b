#include "support/copy_floors.h"

#include <cstring>

#include "MIPI_reader/parser/raw_packet.h"

namespace kerul::lidar::bench {
namespace {

// Sixteen bytes that need not be aligned, whatever type lies there.
using Bytes16 = std::uint8_t __attribute__((vector_size(16), aligned(1), may_alias));

std::vector<std::pair<int, int>> PlacesInPacketOrder() {
  std::vector<std::pair<int, int>> places;
  for (int packet = 0; packet < kPacketsPerFrame; ++packet) {
    const int group = packet / kPacketsPerRow;
    const int slot = packet / 48 % 4;
    for (int block = 0; block < kPointsPerPacket; ++block) {
      const int pixel_id = packet % 48 * kPointsPerPacket + block;
      const PixelPlace place = PlacePixel(pixel_id, group, slot, 6, 6);
      places.emplace_back(place.row, place.col);
    }
  }
  return places;
}

}  // namespace

void CopyRecord(const LidarPoint& from, LidarPoint& to) noexcept {
  constexpr std::size_t kWhole = sizeof(LidarPoint) / sizeof(Bytes16);
  constexpr std::size_t kTail = sizeof(LidarPoint) - sizeof(Bytes16);
  const auto* source = reinterpret_cast<const std::uint8_t*>(&from);
  auto* target = reinterpret_cast<std::uint8_t*>(&to);
#pragma GCC unroll 18
  for (std::size_t i = 0; i < kWhole; ++i) {
    const auto bytes = *reinterpret_cast<const Bytes16*>(source + i * sizeof(Bytes16));
    *reinterpret_cast<Bytes16*>(target + i * sizeof(Bytes16)) = bytes;
  }
  // The last bytes, together with some already copied.
  const auto bytes = *reinterpret_cast<const Bytes16*>(source + kTail);
  *reinterpret_cast<Bytes16*>(target + kTail) = bytes;
}

CopyFloors::CopyFloors()
    : packet_memory_(static_cast<std::size_t>(kPacketsPerFrame) * sizeof(RawPacket)),
      packet_points_(kPointsPerPacket),
      rows_(216, std::vector<LidarPoint>(288)),
      places_(PlacesInPacketOrder()) {}

void CopyFloors::CopyPackets(const FramePackets& packets) noexcept {
  std::uint8_t* target = packet_memory_.data();
  for (const RawPacket& packet : packets) {
    std::memcpy(target, packet.data(), packet.size());
    target += packet.size();
  }
}

void CopyFloors::CopyRecords() noexcept {
  std::size_t block = 0;
  for (const auto& [row, col] : places_) {
    CopyRecord(packet_points_[block],
               rows_[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)]);
    block = block + 1 == packet_points_.size() ? 0 : block + 1;
  }
}

}  // namespace kerul::lidar::bench
