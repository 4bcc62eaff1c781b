// The plain reference and the node, fed with the same frames in turn.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lanes/instruction_set.h"
#include "reference/node.h"
#include "support/bench_input.h"
#include "support/bench_node.h"
#include "support/copy_floors.h"

namespace kerul::lidar::bench {

// Milliseconds per frame, entry i of each from the same round.
struct RoadTimes {
  std::vector<double> reference;
  std::vector<double> node;
  std::vector<double> copy_packets;  // floor: a frame's packets copied once
  std::vector<double> copy_records;  // floor: 62208 records copied into a frame
};

class BothRoads {
 public:
  BothRoads();

  // Each frame is run by both, in turn, and the bytes are compared (std::runtime_error when they
  // differ). cold: 100 MB of other traffic before each measurement; otherwise the same work.
  // Each round takes the instruction sets in turn, each with a reference and floors of its own;
  // entry i of the result belongs to sets[i].
  std::vector<RoadTimes> Measure(std::vector<FramePackets>& frames,
                                 const std::vector<InstructionSet>& sets, int rounds, bool cold);
  // The node alone, cold: ms per frame.
  std::vector<double> MeasureNode(std::vector<FramePackets>& frames, int rounds);

  BenchNode& node() { return node_; }
  // Gives a frame the next frame id and sequence numbers; every frame that is run needs them.
  const FramePackets& Stamp(FramePackets& packets);
  // A frame into the reference.
  void Feed(const FramePackets& packets);
  // Throws when the two have not published the same since the last call.
  void RequireSameBytes();
  std::uint64_t compared_packets() const { return compared_packets_; }

 private:
  void MeasureOnce(FramePackets& frame, bool cold, CopyFloors& floors, RoadTimes& times);

  simulator::CalibrationBlobs calibration_ = MakeCalibration();
  BenchNode node_;
  std::unique_ptr<reference::Node> reference_;
  std::uint32_t next_frame_ = 0;
  std::uint64_t compared_packets_ = 0;
};

}  // namespace kerul::lidar::bench
