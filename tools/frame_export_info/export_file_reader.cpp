#include "frame_export_info/export_file_reader.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>
#include <utility>

namespace kerul::lidar {
namespace {

constexpr std::string_view kMagic = "QNDRBIN1";
constexpr std::size_t kReadBytes = std::size_t{1} << 20;

using Bytes = std::span<const std::uint8_t>;

// The format is little-endian, as every host this runs on.
static_assert(std::endian::native == std::endian::little);

template <class Number>
Number Get(Bytes bytes, std::size_t offset) noexcept {
  Number number;
  std::memcpy(&number, bytes.data() + offset, sizeof number);
  return number;
}

bool Fail(std::string& error, std::string reason) {
  error = std::move(reason);
  return false;
}

bool HasMagic(Bytes bytes) noexcept {
  const std::size_t length = std::min(bytes.size(), kMagic.size());
  return std::memcmp(bytes.data(), kMagic.data(), length) == 0;
}

bool ParseHeader(Bytes bytes, ExportHeader& header, std::string& error) {
  if (bytes.empty()) return Fail(error, "empty file");
  if (!HasMagic(bytes)) {
    return Fail(error, "not a frame export: it does not begin with " + std::string(kMagic));
  }
  if (bytes.size() < kExportHeaderBytes) {
    return Fail(error, "truncated: " + std::to_string(bytes.size()) + " of the header's " +
                           std::to_string(kExportHeaderBytes) + " bytes");
  }
  if (bytes[8] != 1 || bytes[9] != 1) {
    return Fail(error, "format version " + std::to_string(bytes[8]) + "." +
                           std::to_string(bytes[9]) + " is not known, only 1.1 is");
  }
  if (bytes[10] > 2) return Fail(error, "mode " + std::to_string(bytes[10]) + " is not known");
  const auto values = Get<std::uint16_t>(bytes, 16);
  if (values != 2) {
    return Fail(error, "records of " + std::to_string(values) + " values, not of 2");
  }
  header.mode = static_cast<ExportMode>(bytes[10]);
  header.height = Get<std::uint16_t>(bytes, 12);
  header.width = Get<std::uint16_t>(bytes, 14);
  header.frame_id = Get<std::uint32_t>(bytes, 20);
  header.sequence = Get<std::uint64_t>(bytes, 24);
  header.return_count = Get<std::uint32_t>(bytes, 32);
  return true;
}

std::size_t LargestFile(const ExportHeader& header) noexcept {
  return kExportHeaderBytes + kExportRecordBytes * header.height * header.width;
}

std::string PlaceOf(const ExportRecord& record) {
  return std::to_string(record.row) + "," + std::to_string(record.col);
}

bool ParseRecords(Bytes bytes, ExportFile& file, std::string& error) {
  const ExportHeader& header = file.header;
  file.records.reserve(bytes.size() / kExportRecordBytes);
  std::int64_t last_place = -1;
  for (; bytes.size() >= kExportRecordBytes; bytes = bytes.subspan(kExportRecordBytes)) {
    const ExportRecord record{Get<std::uint16_t>(bytes, 0), Get<std::uint16_t>(bytes, 2),
                              Get<float>(bytes, 4), Get<float>(bytes, 8)};
    if (record.row >= header.height || record.col >= header.width) {
      return Fail(error, "damaged: pixel (" + PlaceOf(record) + ") lies outside of the grid");
    }
    const std::int64_t place = std::int64_t{record.row} * header.width + record.col;
    if (place <= last_place) {
      return Fail(error, "damaged: pixel (" + PlaceOf(record) + ") is out of order");
    }
    last_place = place;
    file.records.push_back(record);
  }
  if (bytes.empty()) return true;
  return Fail(error, "truncated: " + std::to_string(bytes.size()) + " of the last record's " +
                         std::to_string(kExportRecordBytes) + " bytes");
}

// What the header counts are the ranges above 0, which leaves out any NaN.
bool CheckCount(const ExportFile& file, std::string& error) {
  const auto found = std::count_if(file.records.begin(), file.records.end(),
                                   [](const ExportRecord& record) { return record.range > 0.0F; });
  const auto told = static_cast<std::int64_t>(file.header.return_count);
  if (found == told) return true;
  const std::string numbers =
      std::to_string(found) + " returns where the header tells " + std::to_string(told);
  return Fail(error, (found < told ? "truncated: " : "damaged: ") + numbers);
}

bool ParseAll(Bytes bytes, ExportFile& file, std::string& error) {
  return ParseHeader(bytes, file.header, error) &&
         ParseRecords(bytes.subspan(kExportHeaderBytes), file, error) && CheckCount(file, error);
}

// Appends up to `count` bytes; fewer at the end of the file.
void Append(std::ifstream& file, std::size_t count, std::vector<std::uint8_t>& bytes) {
  const std::size_t before = bytes.size();
  bytes.resize(before + count);
  file.read(reinterpret_cast<char*>(bytes.data() + before), static_cast<std::streamsize>(count));
  bytes.resize(before + static_cast<std::size_t>(file.gcount()));
}

}  // namespace

const char* ExportModeName(ExportMode mode) noexcept {
  switch (mode) {
    case ExportMode::kRaw:
      return "raw";
    case ExportMode::kProcessed:
      return "processed";
    default:
      return "doubled";
  }
}

bool ParseExportFile(std::span<const std::uint8_t> bytes, ExportFile& file, std::string& error) {
  file = ExportFile{};
  if (ParseAll(bytes, file, error)) return true;
  file = ExportFile{};
  return false;
}

bool ReadExportFile(const std::string& path, ExportFile& file, std::string& error) {
  file = ExportFile{};
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return Fail(error, std::string("cannot open: ") + std::strerror(errno));
  std::vector<std::uint8_t> bytes;
  Append(stream, kExportHeaderBytes, bytes);
  if (stream.bad()) return Fail(error, "cannot read");
  ExportHeader header;
  if (!ParseHeader(bytes, header, error)) return false;
  const std::size_t limit = LargestFile(header);
  while (stream.good() && bytes.size() <= limit) {
    Append(stream, std::min(kReadBytes, limit + 1 - bytes.size()), bytes);
  }
  if (stream.bad()) return Fail(error, "cannot read");
  if (bytes.size() > limit) return Fail(error, "damaged: more records than the grid has pixels");
  return ParseExportFile(bytes, file, error);
}

}  // namespace kerul::lidar
