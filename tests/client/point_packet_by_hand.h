// A published point packet, byte by byte, with the fields that tests change.
#pragma once

#include <array>
#include <cstdint>

namespace kerul::lidar {

struct PacketFields {
  int block = 0;
  int marker = 0;
  int frame_id = 0;
  int mode = 0;
  std::uint32_t sequence_base = 0;
  std::uint32_t seconds = 1'700'000'000;
  std::uint32_t microseconds = 250'000;
  int return_code_byte = 1;
  int distance = 250;                               // of every point, plus the point's index
  std::array<std::uint8_t, 3> payload{10, 20, 30};  // of every point
};

using PacketBytes = std::array<std::uint8_t, 249>;

inline void PutLittle(PacketBytes& bytes, std::size_t at, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) {
    bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

inline PacketBytes MakePacket(const PacketFields& fields) {
  PacketBytes bytes{};
  const std::array<std::uint8_t, 4> magic{0xEE, 0xFF, 7, 10};
  for (std::size_t i = 0; i < 4; ++i) bytes[i] = magic[i];
  PutLittle(bytes, 6, 216, 2);
  PutLittle(bytes, 8, 288, 2);
  bytes[10] = 36;
  bytes[11] = 48;
  bytes[12] = static_cast<std::uint8_t>(fields.marker);
  bytes[13] = 4;
  PutLittle(bytes, 14, 36, 2);
  for (std::size_t i = 0; i < 36; ++i) {
    PutLittle(bytes, 20 + 5 * i,
              static_cast<std::uint32_t>(fields.distance) + static_cast<std::uint32_t>(i), 2);
    for (std::size_t k = 0; k < 3; ++k) bytes[22 + 5 * i + k] = fields.payload[k];
  }
  bytes[203] = static_cast<std::uint8_t>(fields.mode);
  bytes[204] = 0xDD;
  bytes[205] = 0xEE;
  bytes[206] = 0xFF;
  bytes[207] = static_cast<std::uint8_t>(fields.block / 48);
  bytes[208] = static_cast<std::uint8_t>(fields.block % 48);
  bytes[209] = static_cast<std::uint8_t>(fields.frame_id);
  bytes[211] = static_cast<std::uint8_t>(fields.return_code_byte);
  PutLittle(bytes, 212, 100, 2);
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[216 + i] = static_cast<std::uint8_t>(fields.seconds >> (8 * (3 - i)));
  }
  PutLittle(bytes, 220, fields.microseconds, 4);
  bytes[224] = 0x42;
  const auto block = static_cast<std::uint32_t>(fields.block);
  const std::uint32_t place = fields.marker == 0   ? block
                              : fields.marker == 1 ? 2 * block
                                                   : 2 * block + 1;
  PutLittle(bytes, 225, fields.sequence_base + place, 4);
  return bytes;
}

}  // namespace kerul::lidar
