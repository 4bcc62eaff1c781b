// Streams of the simulated sensor, frame by frame.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/stream_faults.h"

namespace kerul::lidar::testing {

using Datagram = std::vector<std::uint8_t>;

// Faults beyond those of the simulator. Each is a probability per datagram.
struct StreamFaults {
  double late = 0.0;  // arrives up to 3000 datagrams later: rows run again, stragglers
  double wild = 0.0;  // one byte of it is random
};

// Frames of several scenes in turn, computed once and sent repeatedly, faults on request.
class SimulatedStream {
 public:
  struct Plan {
    std::vector<std::string> scenes;  // of the frames that are sent in turn
    bool mix_rows = false;            // each frame takes its miniflash rows from the scenes in turn
    std::uint32_t first_frame = 1;    // number of the first frame sent
    std::uint64_t datagrams = 0;      // length of the stream
    simulator::FaultRates faults = {};
    StreamFaults more_faults = {};
    std::uint64_t seed = 1;
  };

  explicit SimulatedStream(const Plan& plan);

  // The next datagram, null at the end. It lives until the next call.
  const Datagram* Next();
  const simulator::FaultCounts& fault_counts() const noexcept { return faults_.counts(); }

 private:
  using RawFrame = std::vector<simulator::RawPacket>;

  void LoadFrame();
  Datagram TakeInOrder();
  bool TakeLate();

  Plan plan_;
  std::vector<RawFrame> cached_;
  simulator::FaultInjector faults_;
  simulator::Random random_;
  std::vector<Datagram> frame_;
  std::size_t next_in_frame_ = 0;
  std::uint32_t frames_loaded_ = 0;
  std::uint64_t datagrams_given_ = 0;
  std::multimap<std::uint64_t, Datagram> held_back_;  // by the number of the datagram to go before
  Datagram current_;
};

// The calibration of the sensor that these streams come from; made once in a process.
const simulator::CalibrationBlobs& SimulatedCalibration();

}  // namespace kerul::lidar::testing
