// The measurements, as Markdown tables on standard output. All throw std::runtime_error when
// reference and node published different bytes.
#pragma once

#include <vector>

#include "lanes/instruction_set.h"
#include "road/both_roads.h"

namespace kerul::lidar::bench {

using InstructionSets = std::vector<InstructionSet>;

// Reference, node and floors, in turn for each set. `cold`: after other traffic.
void PrintRoad(BothRoads& roads, std::vector<FramePackets>& street, const InstructionSets& sets,
               int rounds, bool cold);
// A column for each set.
void PrintStages(BothRoads& roads, std::vector<FramePackets>& street, const InstructionSets& sets,
                 int rounds);
// Neighbour validation on the street and with all echoes valid, a column for each set.
void PrintNeighbours(BothRoads& roads, std::vector<FramePackets>& street,
                     const InstructionSets& sets, int rounds);

// With the set that is chosen at the time:
// How cost grows with windows, echoes and bright pixels.
void PrintGrowth(BothRoads& roads, std::vector<FramePackets>& street, int rounds);
// The bloom pass over rows of a frame in which nothing is bright.
void PrintRowWithoutSource();
void PrintLive(BothRoads& roads, std::vector<FramePackets>& street, int rounds);
void PrintCpuShare(BothRoads& roads, const std::vector<FramePackets>& street, double seconds);

}  // namespace kerul::lidar::bench
