// What each echo of a frame was when its row began and after each pass, for looks at whole frames.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "MIPI_reader/parser/point_packet_layout.h"
#include "pixel_story/arrival.h"
#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

// What the passes change of an echo, as it stood at one moment.
struct EchoState {
  float dist_raw = 0.0F;   // metres
  float refl_raw = 0.0F;   // 0..255
  float dist_proc = 0.0F;  // metres
  float refl_proc = 0.0F;  // 0..255
  bool ground = false;
  bool fill_point = false;
  bool bloom = false;       // highReflBlooming
  bool shot_noise = false;  // shot_noise_group_point
  bool high_refl = false;
  bool after_pulse = false;
  bool detect_pass = true;

  bool operator==(const EchoState&) const = default;
};

EchoState StateOf(const LidarEcho& echo) noexcept;

// Bytes of a published point; `there` is false where the plan publishes no such packet.
struct PublishedPoint {
  bool there = false;
  std::uint16_t distance = 0;  // 4 mm each
  std::array<std::uint8_t, 3> payload{};
};

// The moments of a row: how the packets left it, then after each pass. A pass that is off leaves
// the state before it.
inline constexpr std::size_t kMoments = 1 + std::size(kRowPassOrder);
constexpr std::size_t MomentAfter(RowPass pass) noexcept {
  return 1 + static_cast<std::size_t>(pass);
}

// One slot of one pixel.
struct EchoRecord {
  Arrival arrival = Arrival::kNoPacket;
  // The pass that took its range when its row ran before with the same packet.
  std::optional<RowPass> erased_before;
  std::array<EchoState, kMoments> states{};
  PublishedPoint published;  // of the packet that this slot goes out in
};

struct PixelRecord {
  bool row_ran = false;  // otherwise nothing of it was published
  // The slot whose echo the order has put into each slot.
  std::array<int, kEchoSlots> from_slot{0, 1};
  std::array<EchoRecord, kEchoSlots> echoes{};
};

class FrameStates : public StoryWatcher {
 public:
  void Begin(const NodeParts& parts) override;
  void OnPacket(const PacketMoment& moment) override;
  void OnRowBegins(const RowMoment& moment) override;
  void OnPass(const PassMoment& moment) override;
  void OnRowPublished(const RowMoment& moment, const std::vector<ReceivedPacket>& packets) override;

  int Height() const noexcept { return height_; }
  int Width() const noexcept { return width_; }
  int EchoCount() const noexcept { return echo_count_; }
  const PixelRecord& At(int row, int col) const { return records_[IndexOf(row, col)]; }

 private:
  // What came with a packet waits until the row runs.
  struct Arrived {
    bool waits = false;
    std::array<Arrival, kEchoSlots> echoes{};
  };

  std::size_t IndexOf(int row, int col) const noexcept {
    return static_cast<std::size_t>(row * width_ + col);
  }
  PixelRecord& RecordAt(int row, int col) { return records_[IndexOf(row, col)]; }
  bool IsCalibrated(const LidarPoint& point) const;
  void TakeArrived(Arrived& arrived, PixelRecord& record);
  void KeepOrder(const PassMoment& moment);
  void Keep(const LidarFrame& frame, int m_row, std::size_t moment);

  int height_ = 0;
  int width_ = 0;
  int row_height_ = 0;
  int echo_count_ = 0;
  CalibrationSteps calibration_;  // the node's: until the end of the run
  std::vector<PixelRecord> records_;
  std::vector<Arrived> arrived_;
};

// Calls visit(row, col, slot, point) for the 36 points of each packet.
template <typename Visit>
void VisitPublished(const std::vector<ReceivedPacket>& packets, const Visit& visit) {
  using namespace point_packet;
  for (const ReceivedPacket& packet : packets) {
    const int slot = packet.bytes[kMarkerOffset] == kMarkerSecond ? 1 : 0;
    const std::uint8_t* bytes = packet.bytes + kPointsOffset;
    for (int i = 0; i < kPoints; ++i, bytes += kPointBytes) {
      PublishedPoint point;
      point.there = true;
      point.distance = static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
      for (std::size_t k = 0; k < point.payload.size(); ++k)
        point.payload[k] = bytes[kPayloadOffset + k];
      visit(packet.bytes[kBlockRowOffset] * kBlockSide + i % kBlockSide,
            packet.bytes[kBlockColOffset] * kBlockSide + i / kBlockSide, slot, point);
    }
  }
}

}  // namespace kerul::lidar::story
