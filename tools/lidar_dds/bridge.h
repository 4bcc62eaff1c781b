// From the node's frames to messages: what is read, what is handed on, what is counted.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>

#include "kerul_lidar/frame_stream.h"
#include "lidar_dds/message_sink.h"
#include "ros_messages/message_options.h"

namespace kerul::lidar::dds {

struct BridgeOptions {
  ros::MessageOptions messages;
  bool images = false;
  double seconds = 0.0;      // stop after this time; 0: never
  std::uint64_t frames = 0;  // stop after this many complete frames; 0: never
};

struct BridgeResult {
  FrameStreamCounts stream;
  std::uint64_t published = 0;  // frames written for somebody
  std::uint64_t left_out = 0;   // frames that subscribers or the network did not keep up with
};

// Reads frames until a limit or `stop` and writes their messages, by a thread of its own, to
// `sink`. A message to which nobody subscribes is not made. At most once a second a status line
// goes to `out`, one over the other if `overwrite_status`.
BridgeResult RunBridge(const BridgeOptions& options, FrameStream& stream, MessageSink& sink,
                       const std::atomic<bool>& stop, bool overwrite_status, std::ostream& out);

}  // namespace kerul::lidar::dds
