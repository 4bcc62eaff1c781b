#include "simulated_stream.h"

#include <utility>

#include "sensor_simulator/raw_packet.h"
#include "sensor_simulator/scenes.h"

namespace kerul::lidar::testing {
namespace {

constexpr double kFramePeriodS = 0.1;
constexpr std::size_t kPacketsPerMrow = 192;
constexpr std::uint32_t kLatestDatagrams = 3000;

simulator::SimulatorOptions Options(std::uint64_t seed) {
  simulator::SimulatorOptions options;
  options.seed = seed;
  return options;
}

}  // namespace

const simulator::CalibrationBlobs& SimulatedCalibration() {
  static const simulator::CalibrationBlobs blobs = simulator::MakeBlobs(Options(1));
  return blobs;
}

SimulatedStream::SimulatedStream(const Plan& plan)
    : plan_(plan), faults_(plan.faults, plan.seed), random_(simulator::MixSeed(plan.seed, 2)) {
  for (std::size_t i = 0; i < plan_.scenes.size(); ++i) {
    simulator::FrameSimulator frames(simulator::MakeScene(plan_.scenes[i]), Options(plan_.seed));
    cached_.push_back(
        simulator::EncodeFrame(frames.Simulate(plan_.first_frame + static_cast<std::uint32_t>(i))));
  }
  if (!plan_.mix_rows) return;
  const std::vector<RawFrame> pure = cached_;
  for (std::size_t i = 0; i < cached_.size(); ++i) {
    for (std::size_t packet = 0; packet < cached_[i].size(); ++packet) {
      cached_[i][packet] = pure[(i + packet / kPacketsPerMrow) % pure.size()][packet];
    }
  }
}

void SimulatedStream::LoadFrame() {
  RawFrame& packets = cached_[frames_loaded_ % cached_.size()];
  const std::uint32_t number = plan_.first_frame + frames_loaded_;
  simulator::StampFrame(packets, number, number * kFramePeriodS);
  frame_ = faults_.Apply(packets);
  next_in_frame_ = 0;
  ++frames_loaded_;
}

Datagram SimulatedStream::TakeInOrder() {
  while (next_in_frame_ == frame_.size()) LoadFrame();
  return std::move(frame_[next_in_frame_++]);
}

bool SimulatedStream::TakeLate() {
  if (held_back_.empty() || held_back_.begin()->first > datagrams_given_) return false;
  current_ = std::move(held_back_.begin()->second);
  held_back_.erase(held_back_.begin());
  return true;
}

const Datagram* SimulatedStream::Next() {
  if (datagrams_given_ == plan_.datagrams) return nullptr;
  ++datagrams_given_;
  if (TakeLate()) return &current_;
  current_ = TakeInOrder();
  while (random_.Chance(plan_.more_faults.late)) {
    held_back_.emplace(datagrams_given_ + 1 + random_.Below(kLatestDatagrams), std::move(current_));
    current_ = TakeInOrder();
  }
  if (random_.Chance(plan_.more_faults.wild)) {
    current_[random_.Below(static_cast<std::uint32_t>(current_.size()))] =
        static_cast<std::uint8_t>(random_.Below(256));
  }
  return &current_;
}

}  // namespace kerul::lidar::testing
