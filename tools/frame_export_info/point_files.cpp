#include "frame_export_info/point_files.h"

#include <array>
#include <bit>
#include <charconv>
#include <sstream>

#include "support/output_file.h"

namespace kerul::lidar {
namespace {

// Both binary formats are little-endian, as every host this runs on, and pack their fields.
static_assert(std::endian::native == std::endian::little);

// Collects what write(stream) gives and makes a file of it.
template <class Content>
bool WriteFile(const std::string& path, std::string& error, const Content& write) {
  std::ostringstream content;
  write(content);
  if (WriteOutputFile(path, content.view(), error)) return true;
  error = "cannot write: " + error;
  return false;
}

template <class Number>
void Put(std::ostream& file, Number number) {
  std::array<char, 32> text;
  const auto [end, status] = std::to_chars(text.data(), text.data() + text.size(), number);
  file.write(text.data(), end - text.data());
}

template <class Number>
void PutBytes(std::ostream& file, Number number) {
  const auto bytes = std::bit_cast<std::array<char, sizeof(Number)>>(number);
  file.write(bytes.data(), bytes.size());
}

void PutPoints(std::ostream& file, std::span<const ExportPoint> points) {
  for (const ExportPoint& point : points) {
    PutBytes(file, point.x);
    PutBytes(file, point.y);
    PutBytes(file, point.z);
    PutBytes(file, point.intensity);
    PutBytes(file, point.row);
    PutBytes(file, point.col);
  }
}

}  // namespace

bool WriteCsv(const std::string& path, std::span<const ExportRecord> records, std::string& error) {
  return WriteFile(path, error, [&](std::ostream& file) {
    file << "row,col,range_m,reflectivity\n";
    for (const ExportRecord& record : records) {
      Put(file, record.row);
      file << ',';
      Put(file, record.col);
      file << ',';
      Put(file, record.range);
      file << ',';
      Put(file, record.reflectivity);
      file << '\n';
    }
  });
}

bool WritePcd(const std::string& path, std::span<const ExportPoint> points, std::string& error) {
  return WriteFile(path, error, [&](std::ostream& file) {
    file << "# .PCD v0.7 - Point Cloud Data file format\n"
            "VERSION 0.7\n"
            "FIELDS x y z intensity row col\n"
            "SIZE 4 4 4 4 2 2\n"
            "TYPE F F F F U U\n"
            "COUNT 1 1 1 1 1 1\n"
         << "WIDTH " << points.size() << "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS "
         << points.size() << "\nDATA binary\n";
    PutPoints(file, points);
  });
}

bool WritePly(const std::string& path, std::span<const ExportPoint> points, std::string& error) {
  return WriteFile(path, error, [&](std::ostream& file) {
    file << "ply\nformat binary_little_endian 1.0\nelement vertex " << points.size()
         << "\nproperty float x\nproperty float y\nproperty float z\nproperty float intensity\n"
            "property ushort row\nproperty ushort col\nend_header\n";
    PutPoints(file, points);
  });
}

}  // namespace kerul::lidar
