// Sensor ids in messages. They come from outside and may hold any byte.
#pragma once

#include <string>

namespace kerul::lidar {

// Control characters, which could steer a terminal or break a log's lines.
inline bool IsControl(char byte) noexcept {
  return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
}

// The id with each control character as \xHH, and a backslash as two.
inline std::string PrintableId(const std::string& id) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char byte : id) {
    const auto value = static_cast<unsigned char>(byte);
    if (IsControl(byte)) {
      text += {'\\', 'x', kDigits[value >> 4U], kDigits[value & 0xFU]};
    } else {
      text += byte == '\\' ? "\\\\" : std::string(1, byte);
    }
  }
  return text;
}

}  // namespace kerul::lidar
