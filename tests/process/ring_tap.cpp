#include "ring_tap.h"

#include <algorithm>

namespace kerul::lidar::testing {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

}  // namespace

const CollectedFrame* RingTap::NextFrame(milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  ReceivedPacket packet;
  while (Clock::now() < deadline) {
    if (!reader_.Next(packet, milliseconds(50))) continue;
    if (const CollectedFrame* frame = Take(packet)) return frame;
  }
  return nullptr;
}

const CollectedFrame* RingTap::NextComplete(milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (Clock::now() < deadline) {
    const CollectedFrame* frame =
        NextFrame(std::chrono::ceil<milliseconds>(deadline - Clock::now()));
    if (frame != nullptr && frame->IsComplete()) return frame;
  }
  return nullptr;
}

const CollectedFrame* RingTap::Take(const ReceivedPacket& packet) {
  // A restarted node begins its numbers again: the frames of before must not be taken for these.
  if (attached_ != Ring().attached) collector_.Restart();
  attached_ = Ring().attached;
  PointPacketView view;
  if (view.Parse(packet.bytes, packet.length) != PointPacketError::kNone) {
    ++refused_;
    return nullptr;
  }
  return collector_.Add(view);
}

int CountReturns(const CollectedFrame& frame) {
  return static_cast<int>(
      std::count_if(frame.points.begin(), frame.points.end(),
                    [](const FramePoint& point) { return point.distance != 0; }));
}

}  // namespace kerul::lidar::testing
