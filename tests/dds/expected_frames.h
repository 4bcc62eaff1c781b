// What our own reader sees of a ring, as a file for the decoder's checks.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "kerul_lidar/frame_stream.h"
#include "ros_messages/stream_options.h"

namespace kerul::lidar::testing {

// For each frame: seconds and nanoseconds of its first packet (4 bytes each), then for each pixel,
// row by row from the lowest, eight floats: x, y, z, intensity, range, echo, flags, time.
class PointsFile {
 public:
  PointsFile(const std::string& ring_name, const std::string& path)
      : file_(path, std::ios::binary) {
    ros::StreamOptions options;
    options.shm_name = ring_name;
    std::string error;
    stream_ = ros::OpenStream(options, RingStart::kOldest, error);
    EXPECT_NE(stream_, nullptr) << error;
  }

  // The next frame, which must be there.
  void TakeFrame() {
    const Frame* frame = stream_->Next(std::chrono::milliseconds(0));
    ASSERT_NE(frame, nullptr);
    ASSERT_TRUE(frame->IsComplete());
    Put(static_cast<std::uint32_t>(frame->first_timestamp_us / 1'000'000));
    Put(static_cast<std::uint32_t>(frame->first_timestamp_us % 1'000'000 * 1'000));
    for (int row = 0; row < 216; ++row) {
      // Rows come six at a time, each six with a time stamp.
      const std::int64_t row_us = frame->row_timestamp_us[static_cast<std::size_t>(row / 6)];
      const double time_s = static_cast<double>(row_us - frame->first_timestamp_us) / 1e6;
      for (int col = 0; col < 288; ++col) {
        const std::size_t place = Frame::Index(0, row, col);
        const bool is_return = frame->range_m[place] > 0.0F;
        Put(frame->x_m[place]);
        Put(frame->y_m[place]);
        Put(frame->z_m[place]);
        Put(is_return ? static_cast<float>(frame->reflectivity[place]) : 0.0F);
        Put(frame->range_m[place]);
        Put(0.0F);
        Put(static_cast<float>(frame->flags[place]));
        Put(static_cast<float>(time_s));
      }
    }
    file_.flush();
  }

 private:
  template <class Value>
  void Put(Value value) {
    file_.write(reinterpret_cast<const char*>(&value), sizeof(value));
  }

  std::unique_ptr<FrameStream> stream_;
  std::ofstream file_;
};

}  // namespace kerul::lidar::testing
