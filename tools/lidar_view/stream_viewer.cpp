#include "lidar_view/stream_viewer.h"

#include <algorithm>

#include "kerul_lidar/point_packet_view.h"

namespace kerul::lidar::view {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kStatusInterval{1000};
// How long a wait for a packet may delay a stop request or a time limit.
constexpr std::chrono::milliseconds kLongestWait{50};

double SecondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

std::int64_t SystemTimeUs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

void StreamViewer::Run(const ViewLimits& limits, const std::atomic<bool>& stop,
                       const std::function<void(const std::string&)>& show_status) {
  const Clock::time_point start = Clock::now();
  Clock::time_point shown = start;
  ViewCounts counts_shown;
  ReceivedPacket packet;
  while (!stop) {
    if (input_.Next(packet, kLongestWait)) Take(packet);
    const Clock::time_point now = Clock::now();
    seconds_ = SecondsBetween(start, now);
    if (now - shown >= kStatusInterval) {
      UpdateCounts();
      show_status(FormatStatus(counts_shown, counts_, SecondsBetween(shown, now)));
      counts_shown = counts_;
      shown = now;
    }
    if (limits.seconds > 0.0 && seconds_ >= limits.seconds) break;
    if (limits.complete_frames != 0 && counts_.complete >= limits.complete_frames) break;
  }
  UpdateCounts();
}

void StreamViewer::Take(const ReceivedPacket& packet) {
  PointPacketView view;
  if (view.Parse(packet.bytes, packet.length) != PointPacketError::kNone) {
    ++counts_.invalid;
    return;
  }
  ++counts_.packets;
  counts_.latency_sum_ms += static_cast<double>(SystemTimeUs() - view.TimestampUs()) / 1000.0;
  input_.NoteSequence(view.Sequence());
  if (input_.Restarts() != restarts_) {
    restarts_ = input_.Restarts();
    collector_.Restart();
  }
  const CollectedFrame* frame = collector_.Add(view);
  if (frame == nullptr || !frame->IsComplete()) return;
  latest_ = *frame;
  ++counts_.complete;
}

void StreamViewer::UpdateCounts() {
  counts_.incomplete = collector_.Statistics().incomplete;
  counts_.missing = collector_.Statistics().missing_frame_ids;
  counts_.lost = input_.Lost();
}

}  // namespace kerul::lidar::view
