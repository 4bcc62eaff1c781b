#include "ros_messages/message_types.h"

namespace kerul::lidar::ros {
namespace {

const std::string kHeaderText =
    R"(================================================================================
MSG: std_msgs/Header
builtin_interfaces/Time stamp
string frame_id
================================================================================
MSG: builtin_interfaces/Time
int32 sec
uint32 nanosec
)";

const std::string kPointCloud2Text =
    R"(std_msgs/Header header
uint32 height
uint32 width
sensor_msgs/PointField[] fields
bool is_bigendian
uint32 point_step
uint32 row_step
uint8[] data
bool is_dense
)" + kHeaderText +
    R"(================================================================================
MSG: sensor_msgs/PointField
uint8 INT8=1
uint8 UINT8=2
uint8 INT16=3
uint8 UINT16=4
uint8 INT32=5
uint8 UINT32=6
uint8 FLOAT32=7
uint8 FLOAT64=8
string name
uint32 offset
uint8 datatype
uint32 count
)";

const std::string kImageText = R"(std_msgs/Header header
uint32 height
uint32 width
string encoding
uint8 is_bigendian
uint32 step
uint8[] data
)" + kHeaderText;

}  // namespace

const MessageType kPointCloud2{
    "sensor_msgs/msg/PointCloud2",
    "sensor_msgs::msg::dds_::PointCloud2_",
    "RIHS01_9198cabf7da3796ae6fe19c4cb3bdd3525492988c70522628af5daa124bae2b5",
    kPointCloud2Text,
};

const MessageType kImage{
    "sensor_msgs/msg/Image",
    "sensor_msgs::msg::dds_::Image_",
    "RIHS01_d31d41a9a4c4bc8eae9be757b0beed306564f7526c88ea6a4588fb9582527d47",
    kImageText,
};

}  // namespace kerul::lidar::ros
