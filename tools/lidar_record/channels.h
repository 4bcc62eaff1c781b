// What a recording's channels are called and how the ROS 2 tools are told of them.
#pragma once

#include <cstdint>
#include <string>

#include "mcap/file_writer.h"

namespace kerul::lidar::record {

inline constexpr std::uint16_t kCloudChannel = 1;
inline constexpr std::uint16_t kRawChannel = 2;
inline constexpr const char* kRawTopic = "/lidar/raw_packets";

// The header, and the schemas and channels of the clouds and, if asked for, of raw datagrams.
// `topic` without or with its leading slash.
mcap::FileDescription DescribeRecording(const std::string& topic, bool with_raw);

// A raw datagram as a message: CDR of one `uint8[] data`.
void MakeRawMessage(const std::uint8_t* datagram, std::size_t bytes, mcap::Bytes& message);

}  // namespace kerul::lidar::record
