// Streams of the simulated sensor, frame by frame.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/stream_faults.h"

namespace kerul::lidar::testing {

using Datagram = std::vector<std::uint8_t>;

// Frames of several scenes in turn, computed once and sent over and over, faults on request.
class SimulatedStream {
 public:
  struct Plan {
    std::vector<std::string> scenes;  // of the frames that are sent in turn
    std::uint32_t first_frame = 1;    // number of the first frame sent
    std::uint64_t datagrams = 0;      // the stream ends behind so many; 0: see frames
    std::uint32_t frames = 0;         // the stream ends behind so many; 0: see datagrams
    simulator::FaultRates faults = {};
    std::uint64_t seed = 1;
  };

  explicit SimulatedStream(const Plan& plan);

  // The next datagram, null at the end. It lives until the next call.
  const Datagram* Next();
  const simulator::FaultCounts& fault_counts() const noexcept { return faults_.counts(); }

 private:
  void LoadFrame();

  Plan plan_;
  std::vector<std::vector<simulator::RawPacket>> cached_;
  simulator::FaultInjector faults_;
  std::vector<Datagram> frame_;
  std::size_t next_in_frame_ = 0;
  std::uint32_t frames_loaded_ = 0;
  std::uint64_t datagrams_given_ = 0;
};

// The calibration of the sensor that these streams come from; made once in a process.
const simulator::CalibrationBlobs& SimulatedCalibration();

}  // namespace kerul::lidar::testing
