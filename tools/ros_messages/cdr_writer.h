// Writes ROS 2 messages as bytes: plain CDR, little-endian, behind the four bytes that say so.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kerul::lidar::ros {

inline constexpr std::size_t kEncapsulationBytes = 4;

// Appends to the caller's buffer, which is emptied first and keeps its memory. A value is aligned
// to its own size, counted from the end of the encapsulation; the gaps are zero.
class CdrWriter {
 public:
  explicit CdrWriter(std::vector<std::uint8_t>& bytes) : bytes_(bytes) {
    static_assert(std::endian::native == std::endian::little);
    bytes_.assign({0, 1, 0, 0});
  }

  template <class Number>
  void Put(Number value) {
    static_assert(std::is_arithmetic_v<Number>);
    Align(sizeof(Number));
    std::memcpy(Room(sizeof(Number)), &value, sizeof(Number));
  }
  void PutString(std::string_view text) {
    Put(static_cast<std::uint32_t>(text.size() + 1));
    if (!text.empty()) std::memcpy(Room(text.size()), text.data(), text.size());
    Put(std::uint8_t{0});
  }
  // `count` zero bytes for the caller to fill; valid until the next call.
  std::uint8_t* Room(std::size_t count) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + count);
    return bytes_.data() + at;
  }

 private:
  void Align(std::size_t size) {
    while ((bytes_.size() - kEncapsulationBytes) % size != 0) bytes_.push_back(0);
  }

  std::vector<std::uint8_t>& bytes_;
};

}  // namespace kerul::lidar::ros
