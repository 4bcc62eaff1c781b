#include "simulated_stream.h"

#include "sensor_simulator/raw_packet.h"
#include "sensor_simulator/scenes.h"

namespace kerul::lidar::testing {
namespace {

constexpr double kFramePeriodS = 0.1;

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

SimulatedStream::SimulatedStream(const Plan& plan) : plan_(plan), faults_(plan.faults, plan.seed) {
  for (std::size_t i = 0; i < plan_.scenes.size(); ++i) {
    simulator::FrameSimulator frames(simulator::MakeScene(plan_.scenes[i]), Options(plan_.seed));
    cached_.push_back(
        simulator::EncodeFrame(frames.Simulate(plan_.first_frame + static_cast<std::uint32_t>(i))));
  }
}

void SimulatedStream::LoadFrame() {
  std::vector<simulator::RawPacket>& packets = cached_[frames_loaded_ % cached_.size()];
  const std::uint32_t number = plan_.first_frame + frames_loaded_;
  simulator::StampFrame(packets, number, number * kFramePeriodS);
  frame_ = faults_.Apply(packets);
  next_in_frame_ = 0;
  ++frames_loaded_;
}

const Datagram* SimulatedStream::Next() {
  if (plan_.datagrams != 0 && datagrams_given_ == plan_.datagrams) return nullptr;
  while (next_in_frame_ == frame_.size()) {
    if (plan_.frames != 0 && frames_loaded_ == plan_.frames) return nullptr;
    LoadFrame();
  }
  ++datagrams_given_;
  return &frame_[next_in_frame_++];
}

}  // namespace kerul::lidar::testing
