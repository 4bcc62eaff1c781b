#include "lidar_record/channels.h"

#include <cstring>

#include "ros_messages/cdr_writer.h"
#include "ros_messages/message_types.h"

namespace kerul::lidar::record {
namespace {

constexpr std::uint16_t kCloudSchema = 1;
constexpr std::uint16_t kRawSchema = 2;

// What a player of the recording offers: as lidar_dds does, reliable, the last five kept, no limit
// in time. The numbers are those that every version of the tools reads.
constexpr const char* kOfferedQos = R"(- history: 1
  depth: 5
  reliability: 1
  durability: 2
  deadline:
    sec: 9223372036
    nsec: 854775807
  lifespan:
    sec: 9223372036
    nsec: 854775807
  liveliness: 1
  liveliness_lease_duration:
    sec: 9223372036
    nsec: 854775807
  avoid_ros_namespace_conventions: false
)";

constexpr const char* kRawDefinition =
    "# One datagram of the sensor as it came, 692 bytes when it is sound.\nuint8[] data\n";

mcap::Channel CdrChannel(std::uint16_t id, std::uint16_t schema, const std::string& topic) {
  return {id, schema, topic, "cdr", {{"offered_qos_profiles", kOfferedQos}}};
}

}  // namespace

mcap::FileDescription DescribeRecording(const std::string& topic, bool with_raw) {
  const std::string absolute = topic.starts_with('/') ? topic : "/" + topic;
  mcap::FileDescription description{
      {"ros2", "lidar_record"},
      {{kCloudSchema, ros::kPointCloud2.name, "ros2msg", ros::kPointCloud2.definition}},
      {CdrChannel(kCloudChannel, kCloudSchema, absolute)}};
  if (with_raw) {
    description.schemas.push_back(
        {kRawSchema, "kerul_lidar/msg/RawPacket", "ros2msg", kRawDefinition});
    description.channels.push_back(CdrChannel(kRawChannel, kRawSchema, kRawTopic));
  }
  return description;
}

void MakeRawMessage(const std::uint8_t* datagram, std::size_t bytes, mcap::Bytes& message) {
  ros::CdrWriter cdr(message);
  cdr.Put(static_cast<std::uint32_t>(bytes));
  std::memcpy(cdr.Room(bytes), datagram, bytes);
}

}  // namespace kerul::lidar::record
