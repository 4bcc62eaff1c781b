#include "calibration/para2_lidar_calib.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace kerul::lidar::para2_lidar_detail {
namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7U;

// Entry b is the register after a zero register has taken the eight bits of b.
constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t state = byte << 24U;
    for (int bit = 0; bit < 8; ++bit) {
      state = (state << 1U) ^ ((state & 0x80000000U) != 0 ? kPolynomial : 0U);
    }
    table[byte] = state;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

std::uint32_t LoadU32(const std::uint8_t* bytes) noexcept {
  return std::uint32_t{bytes[0]} | (std::uint32_t{bytes[1]} << 8U) |
         (std::uint32_t{bytes[2]} << 16U) | (std::uint32_t{bytes[3]} << 24U);
}

float LoadI16(const std::uint8_t* bytes) noexcept {
  const auto raw = static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8U));
  return static_cast<float>(static_cast<std::int16_t>(raw));
}

// The stored byte is relative to a base that falls with each group of eight tile columns.
void UnpackDistOffset(const std::uint8_t* bytes, int tile_pixels, int tile_columns,
                      std::vector<float>& table) {
  constexpr int kColumnsOfGroup = 8;
  table.resize(kPixelEntries);
  for (int i = 0; i < kPixelEntries; ++i) {
    const std::uint8_t value = bytes[i];
    const int group = ((i / tile_pixels) % tile_columns) / kColumnsOfGroup;
    table[static_cast<std::size_t>(i)] =
        value == 0
            ? 0.0F
            : static_cast<float>(value) + (5.0F - static_cast<float>(group)) * 68.0F + 692.0F;
  }
}

void UnpackRetroScale(const std::uint8_t* bytes, std::vector<float>& table) {
  table.resize(kPixelEntries);
  std::transform(bytes, bytes + kPixelEntries, table.begin(),
                 [](std::uint8_t value) { return static_cast<float>(value) * 0.03125F; });
}

void UnpackCurve(const std::uint8_t* bytes, float scale, std::vector<float>& curve) {
  curve.resize(kCurveEntries);
  for (std::size_t i = 0; i < curve.size(); ++i) curve[i] = LoadI16(bytes + 2 * i) * scale;
}

}  // namespace

std::uint32_t GenPara2Crc32(const std::uint8_t* data, std::size_t size) noexcept {
  if (data == nullptr || size == 0) return 0;
  std::uint32_t state = 0xFFFFFFFFU;
  for (std::size_t i = 0; i < size; ++i) {
    state = (state << 8U) ^ kCrcTable[(state >> 24U) ^ data[i]];
  }
  return state;
}

void VerifyHeadCrc(const std::vector<std::uint8_t>& head, const std::vector<std::uint8_t>& main) {
  if (head.size() < kHeadMinBytes) {
    throw std::runtime_error("para2 head too short for CRC fields");
  }
  const std::uint32_t stored_main = LoadU32(head.data() + kPara2CrcOffset);
  const std::uint32_t stored_head = LoadU32(head.data() + kHeadCrcOffset);
  const std::uint32_t computed_main = GenPara2Crc32(main.data(), main.size());
  const std::uint32_t computed_head = GenPara2Crc32(head.data(), kHeadCheckedBytes);
  if (stored_main == computed_main && stored_head == computed_head) return;
  throw std::runtime_error("para2 head checksum verify failed (para2_crc stored=" +
                           std::to_string(stored_main) + " calc=" + std::to_string(computed_main) +
                           ", head128_crc stored=" + std::to_string(stored_head) +
                           " calc=" + std::to_string(computed_head) + ")");
}

void UnpackPara2Main(const std::vector<std::uint8_t>& main, int tile_pixels, int tile_columns,
                     Para2LidarCalib& calib) {
  // The size counts as 32-bit signed, deliberately: a blob of 2 GiB is too short as well.
  if (static_cast<std::int32_t>(main.size()) < kMainMinBytes) {
    throw std::runtime_error("para2 main bin too short: " + std::to_string(main.size()) + " < " +
                             std::to_string(kMainMinBytes));
  }
  if (tile_pixels == 0 || tile_columns == 0) {
    throw std::runtime_error(
        "para2 tile layout invalid: tile_pixels=" + std::to_string(tile_pixels) +
        " tile_columns=" + std::to_string(tile_columns));
  }
  const std::uint8_t* bytes = main.data();
  UnpackDistOffset(bytes, tile_pixels, tile_columns, calib.dist_offset);
  bytes += kPixelEntries;
  UnpackRetroScale(bytes, calib.retro_scale);
  bytes += kPixelEntries;
  UnpackCurve(bytes, 1.0F, calib.dist_curve);
  bytes += 2 * kCurveEntries;
  UnpackCurve(bytes, 1.0F, calib.dist_curve_high);
  bytes += 2 * kCurveEntries;
  UnpackCurve(bytes, 0.0009765625F, calib.retro_curve);  // 1 / 1024
}

std::string ParseLidarId(const std::vector<std::uint8_t>& head) {
  constexpr std::ptrdiff_t kBytesWithoutName = 8;  // taken when the end mark comes first
  if (head.size() < kLidarIdBytes) return {};
  const auto begin = head.begin();
  const auto limit = begin + static_cast<std::ptrdiff_t>(kLidarIdBytes);
  const auto end = std::find(begin, limit, std::uint8_t{0xFF});
  return {begin, end == begin ? begin + kBytesWithoutName : end};
}

}  // namespace kerul::lidar::para2_lidar_detail
