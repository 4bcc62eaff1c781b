// Reads the binary files that the node's frame export writes. The bytes are not trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kerul::lidar {

inline constexpr std::size_t kExportHeaderBytes = 36;
inline constexpr std::size_t kExportRecordBytes = 12;

enum class ExportMode : std::uint8_t { kRaw = 0, kProcessed = 1, kDoubled = 2 };

struct ExportHeader {
  ExportMode mode = ExportMode::kRaw;
  std::uint16_t height = 0;  // pixel rows of the grid
  std::uint16_t width = 0;   // pixel columns of the grid
  std::uint32_t frame_id = 0;
  std::uint64_t sequence = 0;
  std::uint32_t return_count = 0;  // records whose range is above 0
};

struct ExportRecord {
  std::uint16_t row = 0;
  std::uint16_t col = 0;
  float range = 0.0F;         // metres; NaN is possible
  float reflectivity = 0.0F;  // 0..255 in files of a healthy node; anything is possible
};

struct ExportFile {
  ExportHeader header;
  std::vector<ExportRecord> records;  // inside the grid, each pixel once, in grid order
};

// "raw", "processed" or "doubled".
const char* ExportModeName(ExportMode mode) noexcept;

// False for bytes that are no complete export file, with the reason in `error` and `file` empty.
bool ParseExportFile(std::span<const std::uint8_t> bytes, ExportFile& file, std::string& error);

// The same for a file on disk; reads no more of it than its header allows for.
bool ReadExportFile(const std::string& path, ExportFile& file, std::string& error);

}  // namespace kerul::lidar
