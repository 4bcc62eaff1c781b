// The ring as both sides touch it: 32-bit little-endian words, each loaded and stored atomically.
//
// The memory is shared with other processes, which may write anything to it at any time. So every
// access is an atomic word access: no data race, whatever the other side does, and no word is ever
// seen half written. Header and slots begin at multiples of four bytes, which makes the words:
//
//   header   0 magic 0, magic 1, version, 0 | 1 head_seq | 2 boot_id | 3 slots
//            4 stride, max_payload << 16
//   slot     0 seq | 1 length | 2.. payload
//
// All addresses must be multiples of 4.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "shm_layout.h"  // beside this header, in the tree and installed

namespace kerul::lidar::shm_ring {

static_assert(std::endian::native == std::endian::little, "the ring's words are little-endian");
static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free, "shared between processes");
static_assert(kHeaderBytes % 4 == 0 && kStride % 4 == 0 && kMaxPayload % 4 == 0);

inline constexpr std::uint32_t kWordBytes = 4;
inline constexpr std::uint32_t kMagicWord =
    kMagic0 | (std::uint32_t{kMagic1} << 8) | (std::uint32_t{kVersion} << 16);
// Byte 3 of the header is written as zero and not looked at.
inline constexpr std::uint32_t kMagicMask = 0x00FFFFFF;
inline constexpr std::uint32_t kLengthOffset = 4;  // in a slot; u16, the upper half is zero

inline std::atomic_ref<std::uint32_t> WordAt(std::uint8_t* at) noexcept {
  return std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(at));
}

// Casts the constness away because an atomic_ref of a constant does not exist in C++20. A lock-free
// 32-bit load writes nothing, so this holds for a read-only mapping too.
inline std::uint32_t LoadWord(const std::uint8_t* at, std::memory_order order) noexcept {
  return WordAt(const_cast<std::uint8_t*>(at)).load(order);
}

inline void StoreWord(std::uint8_t* at, std::uint32_t value, std::memory_order order) noexcept {
  WordAt(at).store(value, order);
}

// Older loads and stores of this thread come before its younger stores. On x86-64 this only
// restrains the compiler. The thread sanitizer does not model fences, and GCC warns about that. No
// race is missed, because all words are atomic.
#if defined(__SANITIZE_THREAD__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
inline void FenceBeforeStores() noexcept { std::atomic_thread_fence(std::memory_order_release); }
// Older loads of this thread come before its younger loads and stores.
inline void FenceAfterLoads() noexcept { std::atomic_thread_fence(std::memory_order_acquire); }
#if defined(__SANITIZE_THREAD__)
#pragma GCC diagnostic pop
#endif

// The header's shape fields, each read once: what a check has passed cannot change before its use.
struct HeaderShape {
  std::uint32_t magic;
  std::uint32_t slots;
  std::uint16_t stride;
  std::uint16_t max_payload;
};

inline HeaderShape LoadShape(const std::uint8_t* region) noexcept {
  const std::uint32_t sizes = LoadWord(region + kStrideOffset, std::memory_order_relaxed);
  return {LoadWord(region, std::memory_order_relaxed),
          LoadWord(region + kSlotsOffset, std::memory_order_relaxed),
          static_cast<std::uint16_t>(sizes & 0xFFFF), static_cast<std::uint16_t>(sizes >> 16)};
}

// Whether a ring of this shape can be used in a region of `region_bytes`: magic and version right,
// two slots at least, a stride that holds a slot and keeps its words aligned, all slots inside.
inline bool ShapeFits(const HeaderShape& shape, std::uint32_t region_bytes) noexcept {
  return (shape.magic & kMagicMask) == kMagicWord && shape.slots > 1 && shape.stride >= kStride &&
         shape.stride % kWordBytes == 0 && shape.max_payload >= 1 &&
         shape.max_payload <= kMaxPayload &&
         kHeaderBytes + std::uint64_t{shape.slots} * shape.stride <= region_bytes;
}

// Byte offset of the slot of packet `number`. The number below it is taken modulo 2^32, so number
// 0, which follows 4294967295, has a place as well.
inline std::size_t SlotOffset(const HeaderShape& shape, std::uint32_t number) noexcept {
  // A shape in use has two slots or more: it has passed ShapeFits or is that of an open region.
  // NOLINTNEXTLINE(clang-analyzer-core.DivideZero)
  return kHeaderBytes + std::size_t{(number - 1) % shape.slots} * shape.stride;
}

// Copies `length` bytes into a slot word by word. The bytes after them keep their values.
inline void StoreBytes(std::uint8_t* slot_bytes, const std::uint8_t* from,
                       std::uint32_t length) noexcept {
  const std::uint32_t whole = length / kWordBytes * kWordBytes;
  for (std::uint32_t i = 0; i < whole; i += kWordBytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, from + i, kWordBytes);
    StoreWord(slot_bytes + i, word, std::memory_order_relaxed);
  }
  if (whole == length) return;
  std::uint32_t word = LoadWord(slot_bytes + whole, std::memory_order_relaxed);
  std::memcpy(&word, from + whole, length - whole);
  StoreWord(slot_bytes + whole, word, std::memory_order_relaxed);
}

// The opposite way. `to` must have room for `length` rounded up to whole words.
inline void LoadBytes(const std::uint8_t* slot_bytes, std::uint8_t* to,
                      std::uint32_t length) noexcept {
  for (std::uint32_t i = 0; i < length; i += kWordBytes) {
    const std::uint32_t word = LoadWord(slot_bytes + i, std::memory_order_relaxed);
    std::memcpy(to + i, &word, kWordBytes);
  }
}

}  // namespace kerul::lidar::shm_ring
