// Copies of the point and echo records in steps of 16 or 32 bytes. A plain assignment becomes a
// string instruction (rep movs) with some compilers, whose start costs more than the whole copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Copies all bytes of the record, the padding included, in steps of kStep bytes.
template <std::size_t kStep, typename Record>
inline void CopyRecord(Record& to, const Record& from) noexcept {
  static_assert(std::is_trivially_copyable_v<Record>);
  using Block __attribute__((vector_size(kStep))) = std::uint8_t;
  constexpr std::size_t kBlocks = sizeof(Record) / kStep;
  constexpr std::size_t kRest = sizeof(Record) % kStep;
  auto* target = reinterpret_cast<unsigned char*>(&to);
  const auto* source = reinterpret_cast<const unsigned char*>(&from);
  const auto copy_block = [=](std::size_t offset) {
    Block block;
    static_assert(sizeof(block) == kStep);
    std::memcpy(&block, source + offset, kStep);
    std::memcpy(target + offset, &block, kStep);
  };
  // Unrolled, because a loop would be turned back into a string instruction.
  [&]<std::size_t... kIndex>(std::index_sequence<kIndex...>) { (copy_block(kIndex * kStep), ...); }
  (std::make_index_sequence<kBlocks>());
  std::memcpy(target + kBlocks * kStep, source + kBlocks * kStep, kRest);
}

// Asks for the record's cache lines, which are about to be written.
inline void PrefetchForWrite(const LidarPoint& point) noexcept {
  constexpr std::size_t kCacheLine = 64;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&point);
  for (std::size_t i = 0; i < sizeof(LidarPoint); i += kCacheLine) {
    __builtin_prefetch(bytes + i, 1);
  }
  // The record need not begin with a line, and its end may lie in one more.
  __builtin_prefetch(bytes + sizeof(LidarPoint) - 1, 1);
}

// Copies point i to to[i], in this order: of several for one place, the last stays. No place lies
// among the points copied. Uses the form for the running processor.
void CopyPoints(const LidarPoint* from, LidarPoint* const* to, int count) noexcept;
// For processors with AVX2, in steps of 32 bytes.
void CopyPointsAvx2(const LidarPoint* from, LidarPoint* const* to, int count) noexcept;

}  // namespace kerul::lidar
