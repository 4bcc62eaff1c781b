// A frame as ROS 2 messages: the bytes of sensor_msgs/msg/PointCloud2 and sensor_msgs/msg/Image in
// plain CDR, little-endian, with their encapsulation.
//
// All messages of a frame have one header: the stamp is when the frame's first packet was built, by
// the node's system clock. They line up: pixel (line, column) of an image and point (line, column)
// of an organised cloud are the same pixel. The first line is the top of the picture, so the
// sensor's highest row; the columns run from the left.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kerul_lidar/frame.h"
#include "ros_messages/message_options.h"

namespace kerul::lidar::ros {

class FrameMessages {
 public:
  explicit FrameMessages(const MessageOptions& options);

  // A PointCloud2. Organised: a line for each kept row, with both echoes first those of echo 0,
  // then those of echo 1. An echo that is not published has no returns; of `kBoth` it has no lines.
  // Without directions no point has a place. Replaces what is in `message`, keeps its memory.
  void WriteCloud(const Frame& frame, std::vector<std::uint8_t>& message) const;
  // An Image of the ranges: 32FC1, metres, NaN is no return.
  void WriteRangeImage(const Frame& frame, std::vector<std::uint8_t>& message) const;
  // An Image of the intensities: mono8, 0 where there is no return.
  void WriteReflectivityImage(const Frame& frame, std::vector<std::uint8_t>& message) const;

 private:
  struct Pixel {
    std::uint16_t row;
    std::uint16_t col;
    bool masked;
  };
  struct Echoes {
    int first;
    int count;
  };
  Echoes EchoesOf(const Frame& frame) const noexcept;
  template <class Value, class ValueAt>
  void WriteImage(const Frame& frame, std::string_view encoding, Value none, ValueAt value_at,
                  std::vector<std::uint8_t>& message) const;
  bool IsInCloud(const Frame& frame, int echo, const Pixel& pixel) const noexcept;

  MessageOptions options_;
  std::uint32_t lines_ = 0;    // kept rows
  std::uint32_t columns_ = 0;  // kept columns
  std::vector<Pixel> pixels_;  // the kept ones, line by line from the top
};

}  // namespace kerul::lidar::ros
