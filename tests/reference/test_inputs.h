// Hand-made raw packets for the reference's own tests.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace reference {

inline constexpr std::size_t kRawPacketBytes = 692;

struct RawPlace {
  int group_id = 0;   // 0..35
  int slot_id = 0;    // 0..3
  int run = 0;        // 0..5: 72 pixels each
  int subpkt_id = 0;  // 0..7: 9 pixels each
};

class RawPacket {
 public:
  std::array<std::uint8_t, kRawPacketBytes> bytes{};

  RawPacket(const RawPlace& place, int frame_id) {
    bytes[0] = 0xEE;
    bytes[1] = 0xFF;
    bytes[2] = 7;
    bytes[3] = 11;
    bytes[12] = 9;
    bytes[671] = static_cast<std::uint8_t>(place.slot_id);
    bytes[673] = static_cast<std::uint8_t>(place.group_id);
    bytes[674] = static_cast<std::uint8_t>(place.subpkt_id);
    bytes[675] = static_cast<std::uint8_t>(frame_id);
    for (int block = 0; block < 9; ++block) {
      SetSample(block, 1, 1001);  // both echoes empty
      SetSample(block, 2, 1001);
      SetSample(block, 3, place.run * 72 + place.subpkt_id * 9 + block);
    }
  }

  // 12-bit sample `number` (0..47) of a pixel block (0..8).
  void SetSample(int block, int number, int value) {
    std::uint8_t* three = bytes.data() + 20 + 72 * block + 3 * (number / 2);
    if (number % 2 == 0) {
      three[0] = static_cast<std::uint8_t>(value >> 4);
      three[2] = static_cast<std::uint8_t>((three[2] & 0xF0) | (value & 0x0F));
    } else {
      three[1] = static_cast<std::uint8_t>(value >> 4);
      three[2] = static_cast<std::uint8_t>((three[2] & 0x0F) | ((value & 0x0F) << 4));
    }
  }
};

}  // namespace reference
