// The consumer's side: point packet decoder, payload decoder, sequence tracker, frame collector.
#include <array>
#include <cmath>
#include <cstring>

#include "byte_input.h"
#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/point_packet_view.h"
#include "kerul_lidar/point_payload.h"
#include "kerul_lidar/sequence_tracker.h"

using namespace kerul::lidar;
using fuzz::ByteInput;
using fuzz::Require;

namespace {

constexpr int kMaxPackets = 4000;
constexpr int kMaxFrames = 6;  // beginning one clears its points, which is slow

void CheckPoints(const PointPacketView& view) {
  Require(view.Block() >= 0 && view.Block() < kBlocksPerFrame, "block in frame");
  Require(view.UnitMm() > 0, "a distance unit");
  const std::int64_t time = view.TimestampUs();
  Require(time >= 0 && time < (std::int64_t{1} << 32) * 1'000'000 + (std::int64_t{1} << 32),
          "time");
  for (int i = 0; i < kPointsPerPacket; ++i) {
    const PacketPoint point = view.Point(i);
    Require(point.row / kBlockPixels == view.BlockRow(), "row in block");
    Require(point.col / kBlockPixels == view.BlockCol(), "column in block");
    const PointPayload payload = DecodePointPayload(view.Mode(), point.payload);
    Require(std::isfinite(payload.cogh) && std::isfinite(payload.cogw), "finite payload");
    for (const float component : payload.direction) {
      Require(component >= -1.0F && component <= 1.0F, "direction component");
    }
    PointIntensity(view.Mode(), point.payload);
  }
}

void CheckFrame(const CollectedFrame* frame) {
  if (frame == nullptr) return;
  const int missing = frame->MissingBlocks();
  Require(missing >= 0 && missing < frame->key.echoes * kBlocksPerFrame, "blocks that came");
  Require(frame->IsComplete() == (missing == 0), "complete is none missing");
  Require(frame->packets + static_cast<unsigned>(missing) ==
              frame->duplicates + static_cast<unsigned>(frame->key.echoes * kBlocksPerFrame),
          "every packet is a block or a duplicate");
}

class Consumer {
 public:
  void Take(const std::uint8_t* bytes, std::size_t length) {
    if (++packets_ > kMaxPackets || frames_ > kMaxFrames) return;
    PointPacketView view;
    const PointPacketError error = view.Parse(bytes, length);
    Require(PointPacketErrorName(error)[0] != '\0', "a name for the error");
    Require(view.IsValid() == (error == PointPacketError::kNone), "valid without an error");
    if (!view.IsValid()) return;
    CheckPoints(view);
    tracker_.Take(view.Sequence());
    const CollectedFrame* frame = collector_.Add(view);
    CheckFrame(frame);
    if (frame != nullptr) ++frames_;
  }
  void Restart() {
    collector_.Restart();
    ++frames_;
  }
  void End() {
    CheckFrame(collector_.Flush());
    Require(collector_.Flush() == nullptr, "nothing after the last frame");
  }

 private:
  FrameCollector collector_;
  SequenceTracker tracker_;
  int packets_ = 0;
  int frames_ = 0;
};

using Packet = std::array<std::uint8_t, kPointPacketBytes>;

void StepOneBlock(Packet& packet) {
  std::uint32_t sequence = 0;
  std::memcpy(&sequence, &packet[225], sizeof(sequence));
  ++sequence;
  std::memcpy(&packet[225], &sequence, sizeof(sequence));
  if (++packet[208] < kBlockCols) return;
  packet[208] = 0;
  if (++packet[207] >= kBlockRows) packet[207] = 0;
}

}  // namespace

// A script: whole packets, changed bytes, runs of blocks that follow each other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Consumer* const fresh = new Consumer;
  static Consumer* const consumer = new Consumer;
  *consumer = *fresh;
  ByteInput input(data, size);
  Packet packet{};
  while (!input.Empty()) {
    switch (input.Byte() % 6) {
      case 0: {  // of any length
        const auto bytes = input.Take(input.Word() % 1501);
        consumer->Take(bytes.data(), bytes.size());
        break;
      }
      case 1: {
        const auto bytes = input.Take(packet.size());
        std::copy(bytes.begin(), bytes.end(), packet.begin());
        consumer->Take(packet.data(), packet.size());
        break;
      }
      case 2:
        packet[input.Byte() % packet.size()] = input.Byte();
        break;
      case 3:
        consumer->Take(packet.data(), packet.size());
        break;
      case 4:
        for (unsigned count = input.Word() % 2048; count > 0; --count) {
          StepOneBlock(packet);
          consumer->Take(packet.data(), packet.size());
        }
        break;
      default:
        if (input.Flag()) consumer->Restart();
        break;
    }
  }
  consumer->End();
  return 0;
}
