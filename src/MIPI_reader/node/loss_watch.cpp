#include "MIPI_reader/node/loss_watch.h"

namespace kerul::lidar {

// A socket that was opened anew counts from 0.
std::uint64_t LossWatch::NewlyDropped(std::uint64_t total) noexcept {
  const std::uint64_t before = kernel_dropped_before_;
  kernel_dropped_before_ = total;
  return total < before ? total : total - before;
}

std::string LossWatch::Look(const ClosedFrame& frame, TimePoint now) {
  const std::uint64_t newly_dropped = NewlyDropped(frame.kernel_dropped);
  if (!has_joined_) {
    has_joined_ = true;
    return {};
  }
  ++frames_;
  dropped_ += newly_dropped;
  skipped_ids_ += static_cast<std::uint64_t>(frame.skipped_ids);
  if (frame.packets < frame.packets_of_frame) {
    ++short_frames_;
    missing_packets_ += static_cast<std::uint64_t>(frame.packets_of_frame - frame.packets);
    last_short_ = frame;
  }
  if (now < next_line_) return {};
  std::string line = Rest();
  if (!line.empty()) next_line_ = now + std::chrono::seconds(1);
  return line;
}

std::string LossWatch::Rest() {
  if (short_frames_ == 0 && skipped_ids_ == 0 && dropped_ == 0) return {};
  std::string line = "raw packets lost in " + std::to_string(frames_) +
                     " frames: " + std::to_string(short_frames_) + " of them closed without " +
                     std::to_string(missing_packets_) + " packets";
  if (short_frames_ > 0) {
    line += " (the last, frame_id " + std::to_string(last_short_.frame_id) + ", with " +
            std::to_string(last_short_.packets) + " of " +
            std::to_string(last_short_.packets_of_frame) + ")";
  }
  line += ", " + std::to_string(skipped_ids_) + " frame ids never came, " +
          std::to_string(dropped_) + " datagrams dropped by the kernel";
  frames_ = short_frames_ = missing_packets_ = skipped_ids_ = dropped_ = 0;
  return line;
}

}  // namespace kerul::lidar
