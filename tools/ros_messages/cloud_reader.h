// Clouds of ROS 2 messages read from bytes that may hold anything.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kerul::lidar::ros {

struct NamedField {
  std::string name;
  std::uint32_t offset = 0;   // bytes in a point
  std::uint8_t datatype = 0;  // of sensor_msgs/msg/PointField
  std::uint32_t count = 0;
};

// A sensor_msgs/msg/PointCloud2. `data` is a view of the message's bytes and holds every point.
struct CloudView {
  std::int32_t stamp_sec = 0;
  std::uint32_t stamp_nanosec = 0;
  std::string frame_id;
  std::uint32_t height = 0;
  std::uint32_t width = 0;
  std::vector<NamedField> fields;
  std::uint32_t point_step = 0;  // bytes
  std::uint32_t row_step = 0;
  std::span<const std::uint8_t> data;
  bool is_dense = false;

  std::uint64_t PointCount() const noexcept { return std::uint64_t{height} * width; }
};

// Takes the bytes of a message with its encapsulation, plain CDR, little-endian. False with the
// reason in `error`; `cloud` means nothing then.
bool ParseCloud(std::span<const std::uint8_t> message, CloudView& cloud, std::string& error);

// One field of all points of a cloud, whatever its type.
class FieldColumn {
 public:
  // Of the field of this name. A field that the cloud does not have, has with a type that is not
  // known, or has outside its points, is not there.
  FieldColumn(const CloudView& cloud, const char* name);

  bool IsThere() const noexcept { return datatype_ != 0; }
  // The value of point `index`, which must be below PointCount(); 0 for a field that is not there.
  double At(std::uint64_t index) const noexcept;

 private:
  const CloudView& cloud_;
  std::uint32_t offset_ = 0;
  std::uint8_t datatype_ = 0;
};

}  // namespace kerul::lidar::ros
