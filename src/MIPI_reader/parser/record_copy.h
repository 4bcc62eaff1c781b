// Copies of the point and echo records in steps of 16 bytes. A plain assignment becomes a string
// instruction (rep movs) with some compilers, whose start costs more than the whole copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Copies all bytes of the record, the padding included.
template <typename Record>
inline void CopyRecord(Record& to, const Record& from) noexcept {
  static_assert(std::is_trivially_copyable_v<Record>);
  using Block __attribute__((vector_size(16))) = std::uint64_t;
  constexpr std::size_t kBlockBytes = sizeof(Block);
  constexpr std::size_t kBlocks = sizeof(Record) / kBlockBytes;
  constexpr std::size_t kRest = sizeof(Record) % kBlockBytes;
  auto* target = reinterpret_cast<unsigned char*>(&to);
  const auto* source = reinterpret_cast<const unsigned char*>(&from);
  const auto copy_block = [=](std::size_t offset) {
    Block block;
    std::memcpy(&block, source + offset, sizeof(block));
    std::memcpy(target + offset, &block, sizeof(block));
  };
  // Unrolled, because a loop would be turned back into a string instruction.
  [&]<std::size_t... kIndex>(std::index_sequence<kIndex...>) {
    (copy_block(kIndex * kBlockBytes), ...);
  }
  (std::make_index_sequence<kBlocks>());
  std::memcpy(target + kBlocks * kBlockBytes, source + kBlocks * kBlockBytes, kRest);
}

// Asks for the record's cache lines, which are about to be written.
inline void PrefetchForWrite(const LidarPoint& point) noexcept {
  constexpr std::size_t kCacheLine = 64;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&point);
  for (std::size_t i = 0; i < sizeof(LidarPoint); i += kCacheLine) {
    __builtin_prefetch(bytes + i, 1);
  }
}

inline void CopyPoint(LidarPoint& to, const LidarPoint& from) noexcept { CopyRecord(to, from); }

}  // namespace kerul::lidar
