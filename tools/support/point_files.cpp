#include "support/point_files.h"

#include <string>

#include "support/byte_output.h"

namespace kerul::lidar {
namespace {

struct Field {
  const char* name;
  int bytes;
  char pcd_type;
  const char* ply_type;
};

constexpr Field kFields[] = {{"x", 4, 'F', "float"},    {"y", 4, 'F', "float"},
                             {"z", 4, 'F', "float"},    {"intensity", 4, 'F', "float"},
                             {"row", 2, 'U', "ushort"}, {"col", 2, 'U', "ushort"},
                             {"echo", 1, 'U', "uchar"}, {"ground", 1, 'U', "uchar"}};
constexpr std::size_t kPixelFields = 6;  // without echo and ground

std::span<const Field> FieldsOf(PointFields fields) {
  const std::span<const Field> all(kFields);
  return fields == PointFields::kPixelAndEcho ? all : all.first(kPixelFields);
}

char* PutPacked(char* at, const CloudPoint& point, PointFields fields) {
  for (const float value : {point.x, point.y, point.z, point.intensity}) at = PutNumber(at, value);
  at = PutNumber(PutNumber(at, point.row), point.col);
  if (fields == PointFields::kPixel) return at;
  return PutNumber(PutNumber(at, point.echo), point.ground);
}

char* PutFloats(char* at, const CloudPoint& point, PointFields fields) {
  const float values[] = {point.x,
                          point.y,
                          point.z,
                          point.intensity,
                          static_cast<float>(point.row),
                          static_cast<float>(point.col),
                          static_cast<float>(point.echo),
                          static_cast<float>(point.ground)};
  for (std::size_t i = 0; i < FieldsOf(fields).size(); ++i) at = PutNumber(at, values[i]);
  return at;
}

// Header and points; a point takes `point_bytes` and put(at, point, fields) writes it.
template <class PutPoint>
std::vector<char> Join(const std::string& header, std::span<const CloudPoint> points,
                       PointFields fields, std::size_t point_bytes, const PutPoint& put) {
  std::vector<char> bytes(header.size() + points.size() * point_bytes);
  char* at = bytes.data() + header.copy(bytes.data(), header.size());
  for (const CloudPoint& point : points) at = put(at, point, fields);
  return bytes;
}

std::size_t PackedBytes(PointFields fields) {
  std::size_t bytes = 0;
  for (const Field& field : FieldsOf(fields)) bytes += static_cast<std::size_t>(field.bytes);
  return bytes;
}

}  // namespace

std::vector<char> EncodePcd(std::span<const CloudPoint> points, PointFields fields,
                            PcdNumbers numbers) {
  const bool floats = numbers == PcdNumbers::kFloats;
  std::string lines[] = {"FIELDS", "SIZE", "TYPE", "COUNT"};
  for (const Field& field : FieldsOf(fields)) {
    for (std::string& line : lines) line += ' ';
    lines[0] += field.name;
    lines[1] += std::to_string(floats ? int{sizeof(float)} : field.bytes);
    lines[2] += floats ? 'F' : field.pcd_type;
    lines[3] += '1';
  }
  const std::string count = std::to_string(points.size());
  std::string header = "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n";
  for (const std::string& line : lines) header += line + '\n';
  header +=
      "WIDTH " + count + "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + count + "\nDATA binary\n";
  return floats ? Join(header, points, fields, FieldsOf(fields).size() * sizeof(float), PutFloats)
                : Join(header, points, fields, PackedBytes(fields), PutPacked);
}

std::vector<char> EncodePly(std::span<const CloudPoint> points, PointFields fields) {
  std::string header = "ply\nformat binary_little_endian 1.0\nelement vertex " +
                       std::to_string(points.size()) + "\n";
  for (const Field& field : FieldsOf(fields)) {
    header += std::string("property ") + field.ply_type + " " + field.name + "\n";
  }
  return Join(header + "end_header\n", points, fields, PackedBytes(fields), PutPacked);
}

}  // namespace kerul::lidar
