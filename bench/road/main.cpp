// The whole road from datagram in memory to point packets in the ring, beside the plain reference
// and the copy floors, in one process and in turn. Prints Markdown.
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "road/options.h"
#include "road/tables.h"
#include "support/measuring.h"

namespace {

using namespace kerul::lidar::bench;
using kerul::lidar::ForceInstructionSet;

// For a profiler: the node and nothing else.
void Profile(const std::string& scene, int frame_count) {
  std::vector<FramePackets> frames = MakeFrames(scene, 4);
  BothRoads roads;
  for (int i = 0; i < frame_count; ++i) {
    roads.node().Run(roads.Stamp(frames[static_cast<std::size_t>(i) % frames.size()]));
  }
}

void RunAll(const Options& options) {
  const InstructionSets& sets = options.instruction_sets;
  std::vector<FramePackets> street = MakeFrames("street", 4);
  BothRoads roads;
  std::printf("%s", DescribeMachine().c_str());
  PrintRoad(roads, street, sets, options.rounds, true);
  PrintRoad(roads, street, sets, options.side_rounds, false);
  PrintStages(roads, street, sets, options.rounds);
  if (!options.road_only) {
    PrintNeighbours(roads, street, sets, options.side_rounds);
    ForceInstructionSet(sets.back());
    std::printf("\nWith %s:\n", InstructionSetName(sets.back()));
    PrintGrowth(roads, street, options.side_rounds);
    PrintRowWithoutSource();
    PrintLive(roads, street, options.side_rounds);
  }
  std::printf("\n%llu point packets of reference and node compared: the same bytes.\n",
              static_cast<unsigned long long>(roads.compared_packets()));
  if (!options.road_only) PrintCpuShare(roads, street, options.live_seconds);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ParseOptions({argv + 1, argv + argc});
    ForceInstructionSet(options.instruction_sets.back());
    if (options.profile_frames > 0) {
      Profile(options.profile_scene, options.profile_frames);
    } else {
      RunAll(options);
    }
    return 0;
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kerul_road: %s\n", error.what());
    return 1;
  }
}
