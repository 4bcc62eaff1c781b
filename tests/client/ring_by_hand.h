// A ring whose every word the test sets itself, by the byte offsets of the documented layout.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "output/shm_region.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"

namespace kerul::lidar {

class RingByHand {
 public:
  explicit RingByHand(std::uint32_t slots) : slots_(slots) { Recreate(); }

  const char* Name() const { return name_.c_str(); }
  std::uint8_t* Data() { return region_->Data(); }
  std::uint32_t Slots() const { return slots_; }

  // A new object under the same name; the old mapping is dropped, as by a restarted writer.
  void Recreate() {
    shm_unlink(name_.c_str());
    region_.emplace(name_.c_str(), 20 + slots_ * 1508);
    ASSERT_TRUE(region_->Open(false, false));
    ShmUdpInitRing(Data(), region_->Size());
  }
  void PutU32(std::size_t offset, std::uint32_t value) { std::memcpy(Data() + offset, &value, 4); }
  void PutU16(std::size_t offset, std::uint16_t value) { std::memcpy(Data() + offset, &value, 2); }
  void SetHead(std::uint32_t head) { PutU32(4, head); }
  void SetBootId(std::uint32_t boot_id) { PutU32(8, boot_id); }
  std::size_t SlotOf(std::uint32_t number) const {
    return 20 + std::size_t{(number - 1) % slots_} * 1508;
  }
  // Publishes packet `number`, four bytes that repeat its low byte, but leaves the head alone.
  void PutPacket(std::uint32_t number) {
    const std::size_t slot = SlotOf(number);
    PutU32(slot, number);
    PutU16(slot + 4, 4);
    std::memset(Data() + slot + 8, static_cast<int>(number & 0xFF), 4);
  }
  void PutPackets(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t n = first; n != last + 1; ++n) PutPacket(n);
    SetHead(last);
  }

 private:
  ShmTestName name_;
  std::uint32_t slots_;
  std::optional<ShmRegion> region_;
};

}  // namespace kerul::lidar
