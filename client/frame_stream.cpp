#include "kerul_lidar/frame_stream.h"

#include <algorithm>
#include <utility>

#include "kerul_lidar/point_packet_view.h"

namespace kerul::lidar {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

// Packets that are ready are taken even after the timeout, so that a caller who never waits gets
// every frame. At most this many, more than a frame has: others may send without end.
constexpr int kPacketsAfterTime = 2 * kBlocksPerFrame * kMaxEchoes;

}  // namespace

FrameStream::FrameStream(const std::string& ring_name, RingStart start)
    : input_(MakeRingInput(ring_name, start)) {}

bool FrameStream::OpenUdp(std::uint16_t port, const std::string& multicast_group) {
  std::unique_ptr<PacketInput> input = MakeUdpInput(port, multicast_group, error_);
  if (input == nullptr) return false;
  Follow(std::move(input));
  return true;
}

void FrameStream::OpenPipe(int fd) { Follow(MakePipeInput(fd)); }

void FrameStream::Close() {
  input_ = MakePipeInput(-1);
  collector_.Restart();
}

void FrameStream::Follow(std::unique_ptr<PacketInput> input) {
  input_ = std::move(input);
  collector_ = FrameCollector();
  counts_ = FrameStreamCounts();
  lost_before_ = 0;
  restarts_before_ = 0;
}

bool FrameStream::LoadDirections(const std::string& calib_dir) {
  Directions directions;
  if (!lidar::LoadDirections(calib_dir, directions, error_)) return false;
  directions_ = std::move(directions);
  return true;
}

bool FrameStream::SetAngleRecord(const std::uint8_t* record, std::size_t size) {
  Directions directions{.origin = "angle record", .unit = {}};
  if (!MakeDirections(record, size, directions, error_)) return false;
  directions_ = std::move(directions);
  return true;
}

void FrameStream::SetMount(const TransformParam& mount) {
  mount_ = mount;
  ComputeRotation(*mount_);
}

const Frame* FrameStream::Next(milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  ReceivedPacket packet;
  for (int late = 0; late < kPacketsAfterTime;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) ++late;
    const bool taken = input_->Next(packet, std::max(left, milliseconds(0)));
    if (!taken && !input_->Ended()) return nullptr;
    const CollectedFrame* collected = taken ? Take(packet) : collector_.Flush();
    if (collected != nullptr && Give(*collected)) return &frame_;
    if (!taken) return nullptr;
  }
  return nullptr;
}

const CollectedFrame* FrameStream::Take(const ReceivedPacket& packet) {
  PointPacketView view;
  if (view.Parse(packet.bytes, packet.length) != PointPacketError::kNone) {
    ++counts_.invalid;
    return nullptr;
  }
  ++counts_.packets;
  input_->NoteSequence(view.Sequence());
  counts_.lost_packets = input_->Lost();
  // The frame in hand is not finished by another node's packets.
  if (input_->Restarts() != counts_.restarts) collector_.Restart();
  counts_.restarts = input_->Restarts();
  const CollectedFrame* collected = collector_.Add(view);
  counts_.missing_frames = collector_.Statistics().missing_frame_ids;
  return collected;
}

// False for a frame that had begun before the stream was opened.
bool FrameStream::Give(const CollectedFrame& collected) {
  if (collected.joined_midway && !collected.IsComplete()) return false;
  FillFrame(collected, directions_ ? &*directions_ : nullptr, mount_ ? &*mount_ : nullptr, frame_);
  ++(frame_.IsComplete() ? counts_.complete : counts_.incomplete);
  frame_.lost_packets = counts_.lost_packets - std::exchange(lost_before_, counts_.lost_packets);
  frame_.after_restart = std::exchange(restarts_before_, counts_.restarts) != counts_.restarts;
  return true;
}

}  // namespace kerul::lidar
