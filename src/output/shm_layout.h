// The ring of point packets in shared memory, byte by byte.
#pragma once

#include <cstdint>

namespace kerul::lidar {

// Layout, little-endian. Header, 20 bytes: 0 'S', 1 'H', 2 version 3, 3 zero, 4 u32 head_seq
// (number of the newest complete packet, 0 at start), 8 u32 boot_id, 12 u32 slots, 16 u16 stride,
// 18 u16 max_payload. Slot i at 20 + i * stride: 0 u32 seq (0 while being written), 4 u16 length,
// 6 u16 zero, 8 payload. Packet number n is in slot (n - 1) mod slots.
namespace shm_ring {
inline constexpr std::uint8_t kMagic0 = 0x53;
inline constexpr std::uint8_t kMagic1 = 0x48;
inline constexpr std::uint8_t kVersion = 3;
inline constexpr std::uint32_t kHeaderBytes = 20;
inline constexpr std::uint32_t kHeadSeqOffset = 4;
inline constexpr std::uint32_t kBootIdOffset = 8;
inline constexpr std::uint32_t kSlotsOffset = 12;
inline constexpr std::uint32_t kStrideOffset = 16;
inline constexpr std::uint32_t kMaxPayloadOffset = 18;
inline constexpr std::uint32_t kSlotHeaderBytes = 8;
inline constexpr std::uint16_t kStride = 1508;
inline constexpr std::uint16_t kMaxPayload = 1500;
}  // namespace shm_ring

}  // namespace kerul::lidar
