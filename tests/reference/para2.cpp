#include "reference/para2.h"

#include <stdexcept>

namespace reference {

std::uint32_t Para2Crc(const std::uint8_t* data, std::size_t size) {
  if (data == nullptr || size == 0) return 0;
  std::uint32_t crc = 0xFFFFFFFFU;
  for (std::size_t i = 0; i < size; ++i) {
    for (int bit = 7; bit >= 0; --bit) {
      const std::uint32_t input = static_cast<std::uint32_t>(data[i]) >> bit & 1U;
      const std::uint32_t top = crc >> 31;
      crc <<= 1;
      if (input != top) crc ^= 0x04C11DB7U;
    }
  }
  return crc;
}

std::string HeadLidarId(const std::vector<std::uint8_t>& head) {
  std::size_t length = 0;
  while (length < 20 && head[length] != 0xFF) ++length;
  if (length == 0) length = 8;
  std::string id;
  for (std::size_t i = 0; i < length; ++i) id.push_back(static_cast<char>(head[i]));
  return id;
}

namespace {

std::vector<float> ReadCurve(const std::vector<std::uint8_t>& main, std::size_t offset) {
  std::vector<float> curve;
  for (std::size_t i = 0; i < 512; ++i) {
    int value = main[offset + 2 * i] + 256 * main[offset + 2 * i + 1];
    if (value >= 32768) value -= 65536;
    curve.push_back(static_cast<float>(value));
  }
  return curve;
}

}  // namespace

MainTables UnpackMain(const std::vector<std::uint8_t>& main, int tile_pixels, int tile_columns) {
  if (static_cast<std::int32_t>(main.size()) < 168960) throw std::runtime_error("main too short");
  MainTables tables;
  for (int i = 0; i < 82944; ++i) {
    const std::uint8_t v = main[static_cast<std::size_t>(i)];
    if (v == 0) {
      tables.dist_offset.push_back(0.0F);
      continue;
    }
    const int q = ((i / tile_pixels) % tile_columns) / 8;
    tables.dist_offset.push_back(static_cast<float>(v) + (5.0F - static_cast<float>(q)) * 68.0F +
                                 692.0F);
  }
  for (std::size_t i = 0; i < 82944; ++i) {
    tables.retro_scale.push_back(static_cast<float>(main[82944 + i]) * 0.03125F);
  }
  tables.dist_curve = ReadCurve(main, 165888);
  tables.dist_curve_high = ReadCurve(main, 166912);
  tables.retro_curve = ReadCurve(main, 167936);
  for (float& entry : tables.retro_curve) entry = entry * 0.0009765625F;
  return tables;
}

}  // namespace reference
