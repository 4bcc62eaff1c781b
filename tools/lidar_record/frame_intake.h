// From the stream into the queue.
#pragma once

#include <chrono>
#include <cstdint>

#include "kerul_lidar/frame_stream.h"
#include "lidar_record/message_queue.h"
#include "ros_messages/frame_messages.h"

namespace kerul::lidar::record {

// Since the start.
struct IntakeCounts {
  std::uint64_t frames = 0;    // taken from the stream
  std::uint64_t left_out = 0;  // of these: no room, as the disk was too slow
};

// A frame becomes a PointCloud2. Its log time is when the frame's last packet was built, its
// publish time is the message's stamp, and its sequence counts every frame, left out or not.
class FrameIntake {
 public:
  // Stream and queue must outlive it.
  FrameIntake(const ros::MessageOptions& options, FrameStream& stream, MessageQueue& queue)
      : stream_(stream), messages_(options), queue_(queue) {}

  // Waits up to `timeout` for a frame and hands it on, or leaves it out where the queue is full:
  // the disk never holds up the ring's reader.
  void TakeNext(std::chrono::milliseconds timeout);
  // Takes what a ring holds, until its end, and waits for the disk instead. False at the end:
  // reading is far faster than the node writes, so it comes.
  bool TakeHeld();

  const IntakeCounts& Counts() const noexcept { return counts_; }

 private:
  QueuedMessage MakeMessage(const Frame& frame);

  FrameStream& stream_;
  ros::FrameMessages messages_;
  MessageQueue& queue_;
  IntakeCounts counts_;
};

}  // namespace kerul::lidar::record
