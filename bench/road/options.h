// The command line of kerul_road.
#pragma once

#include <string>
#include <vector>

#include "lanes/instruction_set.h"

namespace kerul::lidar::bench {

struct Options {
  int rounds = 41;       // of the cold road and its stages
  int side_rounds = 11;  // of everything else
  double live_seconds = 5.0;
  bool road_only = false;
  int profile_frames = 0;                // above 0: only run the node over so many frames
  std::string profile_scene = "street";  // as MakeFrames takes it
  // Those to measure, the narrowest first; measurements that are not made for each set use the
  // last. All that the processor has, or the one that was asked for.
  std::vector<InstructionSet> instruction_sets;
};

// Throws std::invalid_argument with a line for the user: an unknown argument or value, or an
// instruction set that this processor lacks.
Options ParseOptions(const std::vector<std::string>& arguments);

}  // namespace kerul::lidar::bench
