#include "output/shm_udp_writer.h"

#include <atomic>
#include <iostream>

#include "output/shm_words.h"

namespace kerul::lidar {

using namespace shm_ring;

namespace {

// The shape of a fresh ring with room for `slots`.
HeaderShape FreshShape(std::uint32_t slots) noexcept {
  return {kMagicWord, slots, kStride, kMaxPayload};
}

// Slots in a region of `size` bytes, which must be the smallest region or larger.
std::uint32_t SlotsIn(std::uint32_t size) noexcept { return (size - kHeaderBytes) / kStride; }

// Marks the slot as being written, then empties it. A reader that finds an emptied word finds the
// mark as well when it looks again.
void ClearSlot(std::uint8_t* slot) noexcept {
  StoreWord(slot, 0, std::memory_order_relaxed);
  FenceBeforeStores();
  for (std::uint32_t i = kWordBytes; i < kStride; i += kWordBytes) {
    StoreWord(slot + i, 0, std::memory_order_relaxed);
  }
}

// Asks for as much of the slot as a packet of `length` bytes needs. Many megabytes of other slots
// were written since its last use: waiting for it would cost more than the copy.
void PrefetchSlot(const std::uint8_t* slot, std::uint32_t length) noexcept {
  constexpr std::uint32_t kCacheLine = 64;
  for (std::uint32_t i = 0; i < kSlotHeaderBytes + length; i += kCacheLine) {
    __builtin_prefetch(slot + i, 1);
  }
}

}  // namespace

void ShmUdpInitRing(std::uint8_t* data, std::uint32_t size) {
  static std::atomic<std::uint32_t> s_boot_id{1};
  constexpr auto kRelaxed = std::memory_order_relaxed;
  const HeaderShape shape = FreshShape(size >= kSmallestShmRegion ? SlotsIn(size) : 0);
  StoreWord(data, kMagicWord, kRelaxed);
  StoreWord(data + kHeadSeqOffset, 0, kRelaxed);
  // Whoever finds the new boot id finds the head taken back.
  StoreWord(data + kBootIdOffset, s_boot_id.fetch_add(1, kRelaxed), std::memory_order_release);
  StoreWord(data + kSlotsOffset, shape.slots, kRelaxed);
  StoreWord(data + kStrideOffset, shape.stride | (std::uint32_t{shape.max_payload} << 16),
            kRelaxed);
  // Whoever finds a slot emptied must find the new boot id as well.
  FenceBeforeStores();
  for (std::uint32_t i = 0; i < shape.slots; ++i) {
    ClearSlot(data + kHeaderBytes + std::size_t{i} * kStride);
  }
}

ShmUdpWriter::ShmUdpWriter(const char* name, std::uint32_t size) : ShmRegion(name, size) {}

bool ShmUdpWriter::Open() {
  if (!ShmRegion::Open(false, true)) return false;
  ShmUdpInitRing(data_, size_);
  seq_ = 0;
  const HeaderShape shape = LoadShape(data_);
  std::cout << "ShmUdpWriter init ring: slots=" << shape.slots << " stride=" << shape.stride
            << " boot_id=" << LoadWord(data_ + kBootIdOffset, std::memory_order_relaxed)
            << " region=" << size_ << std::endl;
  return true;
}

void ShmUdpWriter::Close() { ShmRegion::Close(); }

bool ShmUdpWriter::IsOpened() const noexcept { return ShmRegion::IsOpened(); }

bool ShmUdpWriter::WriteOne(const std::uint8_t* data, std::uint16_t length) {
  if (!IsOpened() || length == 0 || length > kMaxPayload || data == nullptr) {
    ++write_errors_;
    return false;
  }
  // Each field of the header is read once: another process may overwrite it between check and use.
  HeaderShape shape = LoadShape(data_);
  if (!ShapeFits(shape, size_)) {
    ShmUdpInitRing(data_, size_);
    shape = FreshShape(SlotsIn(size_));  // not read back, for the same reason
  }
  const std::uint32_t number = seq_ + 1;  // deliberate: goes on after a repair
  std::uint8_t* slot = data_ + SlotOffset(shape, number);

  StoreWord(slot, 0, std::memory_order_relaxed);
  // The mark above must not be overtaken by the stores below: a reader that has copied any of them
  // would then find the old number unchanged and take a mixture of two packets. Plain stores keep
  // their order on x86-64, other processors need the fence.
  FenceBeforeStores();
  StoreWord(slot + kLengthOffset, 0, std::memory_order_relaxed);
  StoreBytes(slot + kSlotHeaderBytes, data, length);
  StoreWord(slot + kLengthOffset, length, std::memory_order_relaxed);
  StoreWord(slot, number, std::memory_order_release);
  StoreWord(data_ + kHeadSeqOffset, number, std::memory_order_release);
  PrefetchSlot(data_ + SlotOffset(shape, number + 1), length);

  seq_ = number;
  ++written_;
  return true;
}

}  // namespace kerul::lidar
