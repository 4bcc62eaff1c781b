#include "lidar_view/point_files.h"

#include <cstring>
#include <vector>

#include "support/output_file.h"

namespace kerul::lidar::view {
namespace {

constexpr std::size_t kPointBytes = 4 * 4 + 2 * 2 + 2;

template <typename T>
char* Put(char* at, T value) {
  std::memcpy(at, &value, sizeof value);
  return at + sizeof value;
}

// Both formats take the same packed points.
std::vector<char> PackPoints(std::span<const ViewPoint> points) {
  std::vector<char> bytes(points.size() * kPointBytes);
  char* at = bytes.data();
  for (const ViewPoint& point : points) {
    at = Put(at, point.x);
    at = Put(at, point.y);
    at = Put(at, point.z);
    at = Put(at, static_cast<float>(point.intensity));
    at = Put(at, point.row);
    at = Put(at, point.col);
    at = Put(at, point.echo);
    at = Put(at, point.ground);
  }
  return bytes;
}

bool WriteFile(const std::string& path, const std::string& header,
               std::span<const ViewPoint> points, std::string& error) {
  std::vector<char> bytes(header.begin(), header.end());
  const std::vector<char> packed = PackPoints(points);
  bytes.insert(bytes.end(), packed.begin(), packed.end());
  return WriteOutputFile(path, bytes, error);
}

}  // namespace

bool WritePcd(const std::string& path, std::span<const ViewPoint> points, std::string& error) {
  const std::string count = std::to_string(points.size());
  return WriteFile(path,
                   "# .PCD v0.7 - Point Cloud Data file format\n"
                   "VERSION 0.7\n"
                   "FIELDS x y z intensity row col echo ground\n"
                   "SIZE 4 4 4 4 2 2 1 1\n"
                   "TYPE F F F F U U U U\n"
                   "COUNT 1 1 1 1 1 1 1 1\n"
                   "WIDTH " +
                       count + "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + count +
                       "\nDATA binary\n",
                   points, error);
}

bool WritePly(const std::string& path, std::span<const ViewPoint> points, std::string& error) {
  return WriteFile(path,
                   "ply\n"
                   "format binary_little_endian 1.0\n"
                   "element vertex " +
                       std::to_string(points.size()) +
                       "\n"
                       "property float x\n"
                       "property float y\n"
                       "property float z\n"
                       "property float intensity\n"
                       "property ushort row\n"
                       "property ushort col\n"
                       "property uchar echo\n"
                       "property uchar ground\n"
                       "end_header\n",
                   points, error);
}

}  // namespace kerul::lidar::view
