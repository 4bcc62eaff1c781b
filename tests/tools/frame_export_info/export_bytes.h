// Frame export files made by hand, byte by byte.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "frame_export_info/export_file_reader.h"

namespace kerul::lidar::export_test {

using Bytes = std::vector<std::uint8_t>;

inline void Put(Bytes& bytes, std::uint64_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

inline Bytes Header(int mode, int height, int width, std::uint32_t count,
                    std::uint32_t frame_id = 7, std::uint64_t sequence = 12) {
  Bytes bytes{'Q', 'N', 'D', 'R', 'B', 'I', 'N', '1', 1, 1, static_cast<std::uint8_t>(mode), 0};
  Put(bytes, static_cast<std::uint64_t>(height), 2);
  Put(bytes, static_cast<std::uint64_t>(width), 2);
  Put(bytes, 2, 2);
  Put(bytes, 0, 2);
  Put(bytes, frame_id, 4);
  Put(bytes, sequence, 8);
  Put(bytes, count, 4);
  return bytes;
}

inline void Put(Bytes& bytes, const ExportRecord& record) {
  Put(bytes, record.row, 2);
  Put(bytes, record.col, 2);
  for (const float value : {record.range, record.reflectivity}) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    Put(bytes, bits, 4);
  }
}

// A raw file; the header counts `count` returns.
inline Bytes File(int height, int width, std::uint32_t count,
                  std::initializer_list<ExportRecord> records) {
  Bytes bytes = Header(0, height, width, count);
  for (const ExportRecord& record : records) Put(bytes, record);
  return bytes;
}

}  // namespace kerul::lidar::export_test
