// The message types as ROS 2 knows them: names, definitions, hashes, and a cloud's fields.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ros_messages/cloud_point.h"

namespace kerul::lidar::ros {

struct MessageType {
  const char* name;        // as in a schema or a subscription
  const char* dds_name;    // as middlewares announce it
  const char* hash;        // of the definition, as ROS 2 computes it from its description
  std::string definition;  // ros2msg text; the types it needs after lines of 80 '='
};

extern const MessageType kPointCloud2;
extern const MessageType kImage;

// sensor_msgs/msg/PointField.
enum class FieldType : std::uint8_t { kUint8 = 2, kUint16 = 4, kFloat32 = 7 };

struct CloudField {
  const char* name;
  std::uint32_t offset;  // bytes in a CloudPoint
  FieldType type;        // one value each
};

inline constexpr std::array<CloudField, 10> kCloudFields{{
    {"x", offsetof(CloudPoint, x), FieldType::kFloat32},
    {"y", offsetof(CloudPoint, y), FieldType::kFloat32},
    {"z", offsetof(CloudPoint, z), FieldType::kFloat32},
    {"intensity", offsetof(CloudPoint, intensity), FieldType::kFloat32},
    {"range", offsetof(CloudPoint, range), FieldType::kFloat32},
    {"row", offsetof(CloudPoint, row), FieldType::kUint16},
    {"col", offsetof(CloudPoint, col), FieldType::kUint16},
    {"echo", offsetof(CloudPoint, echo), FieldType::kUint8},
    {"flags", offsetof(CloudPoint, flags), FieldType::kUint16},
    {"time", offsetof(CloudPoint, time), FieldType::kFloat32},
}};

}  // namespace kerul::lidar::ros
