// The real node in this process: simulated frames in, published frames out.
#pragma once

#include <memory>
#include <string>

#include "MIPI_reader/node/lidar_node.h"
#include "config/default_config.h"
#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::report {

// The row passes of a run.
struct Passes {
  bool ground = false;
  bool plane = false;  // second stage of the ground labels
  bool neighbours = false;
  bool shot_noise = false;
  bool bloom = false;
};

inline constexpr Passes kNoPasses{};
// As the product is delivered: the plane stage is off.
inline constexpr Passes kDefaultPasses{true, false, true, true, true};

// The product's settings except for the passes and the published echoes: slots 0 and 1 in this
// order, so that they match the truth, with their flags (output mode 12). Ranges and reflectivities
// are the same bytes as in the default mode.
DefaultConfig ConfigWith(const Passes& passes);

class NodeRun {
 public:
  // Brings a node up from the sensor's calibration. Throws what the node's start throws.
  NodeRun(const Passes& passes, const simulator::CalibrationBlobs& calibration);
  ~NodeRun();
  NodeRun(const NodeRun&) = delete;
  NodeRun& operator=(const NodeRun&) = delete;

  // Sends the frame through the node and collects what it wrote into its ring. Frame numbers must
  // rise from call to call. The frame given stays valid until the next call. Throws
  // std::runtime_error when the node did not publish every block.
  const CollectedFrame& Publish(const simulator::SimulatedFrame& frame);

 private:
  std::string shm_name_;
  std::unique_ptr<LidarNode> node_;
  std::unique_ptr<ShmRingReader> ring_;
  FrameCollector collector_;
};

}  // namespace kerul::lidar::report
