#include "road/both_roads.h"

#include <stdexcept>

#include "support/copy_floors.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {

BothRoads::BothRoads() : node_(calibration_) {
  const DefaultConfig& config = default_config::kConfig;
  reference_ = std::make_unique<reference::Node>(
      config, reference::CalibrationFromPara2(calibration_.head, calibration_.main, config));
}

const FramePackets& BothRoads::Stamp(FramePackets& packets) {
  simulator::StampFrame(packets, next_frame_, 0.1 * static_cast<double>(next_frame_));
  ++next_frame_;
  return packets;
}

void BothRoads::Feed(const FramePackets& packets) {
  for (const RawPacket& packet : packets) reference_->Feed(packet.data(), packet.size());
}

void BothRoads::RequireSameBytes() {
  const std::vector<PublishedPacket> published = node_.TakePublished();
  if (published.empty() || published != reference_->published) {
    throw std::runtime_error("reference and node published different bytes");
  }
  compared_packets_ += published.size();
  reference_->published.clear();
}

RoadTimes BothRoads::Measure(std::vector<FramePackets>& frames, int rounds, bool cold) {
  CopyFloors floors;
  RoadTimes times;
  // In the first rounds memory is touched for the first time.
  constexpr int kSettlingRounds = 2;
  for (int round = -kSettlingRounds; round < rounds; ++round) {
    FramePackets& frame = frames[next_frame_ % frames.size()];
    const FramePackets before = cold ? FramePackets{} : Stamp(frame);
    const FramePackets measured = Stamp(frame);
    // What runs before a measurement decides what the caches hold.
    const auto measure = [&](auto&& work) {
      if (!cold) work(before);
      if (cold) OtherTraffic();
      return TimeMs([&] { work(measured); });
    };
    const double reference_ms = measure([&](const FramePackets& packets) { Feed(packets); });
    const double node_ms = measure([&](const FramePackets& packets) { node_.Run(packets); });
    const double packets_ms =
        measure([&](const FramePackets& packets) { floors.CopyPackets(packets); });
    const double records_ms = measure([&](const FramePackets&) { floors.CopyRecords(); });
    RequireSameBytes();
    if (round < 0) continue;
    times.reference.push_back(reference_ms);
    times.node.push_back(node_ms);
    times.copy_packets.push_back(packets_ms);
    times.copy_records.push_back(records_ms);
  }
  return times;
}

std::vector<double> BothRoads::MeasureNode(std::vector<FramePackets>& frames, int rounds) {
  std::vector<double> times;
  for (int round = 0; round < rounds; ++round) {
    const FramePackets& frame = Stamp(frames[next_frame_ % frames.size()]);
    OtherTraffic();
    times.push_back(TimeMs([&] { node_.Run(frame); }));
    Feed(frame);
    RequireSameBytes();
  }
  return times;
}

}  // namespace kerul::lidar::bench
