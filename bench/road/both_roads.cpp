#include "road/both_roads.h"

#include <algorithm>
#include <stdexcept>

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

std::vector<RoadTimes> BothRoads::Measure(std::vector<FramePackets>& frames,
                                          const std::vector<InstructionSet>& sets, int rounds,
                                          bool cold) {
  CopyFloors floors;
  std::vector<RoadTimes> times(sets.size());
  // In the first rounds memory is touched for the first time.
  constexpr int kSettlingRounds = 2;
  for (int round = 0; round < kSettlingRounds + rounds; ++round) {
    if (round == kSettlingRounds) std::fill(times.begin(), times.end(), RoadTimes{});
    for (std::size_t i = 0; i < sets.size(); ++i) {
      ForceInstructionSet(sets[i]);
      MeasureOnce(frames[static_cast<std::size_t>(round) % frames.size()], cold, floors, times[i]);
    }
  }
  return times;
}

void BothRoads::MeasureOnce(FramePackets& frame, bool cold, CopyFloors& floors, RoadTimes& times) {
  const FramePackets before = cold ? FramePackets{} : Stamp(frame);
  const FramePackets measured = Stamp(frame);
  // What runs before a measurement decides what the caches hold.
  const auto measure = [&](auto&& work) {
    if (!cold) work(before);
    if (cold) OtherTraffic();
    return TimeMs([&] { work(measured); });
  };
  times.reference.push_back(measure([&](const FramePackets& packets) { Feed(packets); }));
  times.node.push_back(measure([&](const FramePackets& packets) { node_.Run(packets); }));
  times.copy_packets.push_back(
      measure([&](const FramePackets& packets) { floors.CopyPackets(packets); }));
  times.copy_records.push_back(measure([&](const FramePackets&) { floors.CopyRecords(); }));
  RequireSameBytes();
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
