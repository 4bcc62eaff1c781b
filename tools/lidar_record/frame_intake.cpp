#include "lidar_record/frame_intake.h"

#include "lidar_record/channels.h"

namespace kerul::lidar::record {

void FrameIntake::TakeNext(std::chrono::milliseconds timeout) {
  const Frame* frame = stream_.Next(timeout);
  if (frame == nullptr) return;
  QueuedMessage message = MakeMessage(*frame);
  if (!queue_.TryPut(message)) ++counts_.left_out;
}

bool FrameIntake::TakeHeld() {
  const auto covered = [&] { return stream_.Counts().packets + stream_.Counts().invalid; };
  const std::uint64_t before = covered();
  const Frame* frame = stream_.Next(std::chrono::milliseconds(0));
  if (frame == nullptr) return covered() != before;
  QueuedMessage message = MakeMessage(*frame);
  return queue_.Put(message);
}

QueuedMessage FrameIntake::MakeMessage(const Frame& frame) {
  constexpr std::uint64_t kNanoseconds = 1000;  // in a microsecond
  QueuedMessage message;
  message.header.channel_id = kCloudChannel;
  message.header.sequence = static_cast<std::uint32_t>(counts_.frames++);
  message.header.log_time_ns = static_cast<std::uint64_t>(frame.last_timestamp_us) * kNanoseconds;
  message.header.publish_time_ns =
      static_cast<std::uint64_t>(frame.first_timestamp_us) * kNanoseconds;
  message.data = queue_.Buffer();
  messages_.WriteCloud(frame, message.data);
  message.arrival = std::chrono::steady_clock::now();
  return message;
}

}  // namespace kerul::lidar::record
