// The whole road from datagram in memory to point packets in the ring, beside the plain reference
// and the copy floors, in one process and in turn. Prints Markdown.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "road/both_roads.h"
#include "road/live.h"
#include "road/stages.h"
#include "support/measuring.h"

namespace {

using namespace kerul::lidar::bench;

struct Options {
  int rounds = 41;
  int side_rounds = 11;  // of everything but the cold road and its stages
  double live_seconds = 5.0;
  bool road_only = false;
  int profile_frames = 0;  // above 0: only run the node over so many frames
};

void PrintRow(const char* what, const std::vector<double>& values) {
  const Spread spread = SpreadOf(values);
  std::printf("| %s | %.2f | %.2f | %.2f |\n", what, spread.min, spread.median, spread.max);
}

void PrintRoad(const char* state, const RoadTimes& times) {
  std::printf("\n| %s, ms per frame | min | median | max |\n|---|---|---|---|\n", state);
  PrintRow("plain reference, -O2", times.reference);
  PrintRow("node", times.node);
  PrintRow("floor: copy a frame's packets", times.copy_packets);
  PrintRow("floor: copy a frame's records", times.copy_records);
  PrintRow("**reference / node**", Ratios(times.reference, times.node));
  PrintRow("node / record copy", Ratios(times.node, times.copy_records));
}

void PrintStages(BothRoads& roads, std::vector<FramePackets>& frames, int rounds) {
  StagedRoad staged(roads.node());
  std::array<std::vector<double>, kStages> times;
  std::vector<double> sums;
  for (int round = 0; round < rounds; ++round) {
    const FramePackets& frame = roads.Stamp(frames[static_cast<std::size_t>(round) % 4]);
    OtherTraffic();
    const StageTimes stage_times = staged.Run(frame);
    roads.Feed(frame);
    roads.RequireSameBytes();
    double sum = 0.0;
    for (std::size_t i = 0; i < times.size(); ++i) {
      times[i].push_back(stage_times[i]);
      sum += stage_times[i];
    }
    sums.push_back(sum);
  }
  const double whole = SpreadOf(sums).median;
  std::printf(
      "\n| stage, cold | min, ms | median, ms | max, ms | share |\n|---|---|---|---|---|\n");
  for (int stage = 0; stage < kStages; ++stage) {
    const Spread spread = SpreadOf(times[static_cast<std::size_t>(stage)]);
    std::printf("| %s | %.3f | %.3f | %.3f | %.1f %% |\n", std::string(StageName(stage)).c_str(),
                spread.min, spread.median, spread.max, 100.0 * spread.median / whole);
  }
  const Spread sum = SpreadOf(sums);
  std::printf("| sum | %.3f | %.3f | %.3f | |\n", sum.min, sum.median, sum.max);
}

// Each round runs every scene once, so that the ratios compare what ran at the same time.
void PrintGrowth(BothRoads& roads, std::vector<FramePackets>& street, int rounds) {
  const std::vector<std::string> names = {"street", "empty", "plain", "retro",
                                          "noise",  "full",  "bright"};
  std::vector<std::vector<FramePackets>> scenes = {street};
  for (std::size_t i = 1; i < names.size(); ++i) scenes.push_back(MakeFrames(names[i], 2));
  std::vector<std::vector<double>> times(names.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      times[i].push_back(roads.MeasureNode(scenes[i], 1).front());
    }
  }
  std::printf(
      "\n| frame, cold | first echoes | second echoes | bright pixels | min, ms | median, ms | "
      "max, ms | / street |\n|---|---|---|---|---|---|---|---|\n");
  for (std::size_t i = 0; i < names.size(); ++i) {
    const FrameMix mix = MixOf(scenes[i].front(), roads.node().Access());
    const Spread spread = SpreadOf(times[i]);
    std::printf("| %s | %.0f %% | %.0f %% | %d | %.2f | %.2f | %.2f | %.2f |\n", names[i].c_str(),
                100.0 * mix.first_echoes, 100.0 * mix.second_echoes, mix.bright_pixels, spread.min,
                spread.median, spread.max, SpreadOf(Ratios(times[i], times[0])).median);
  }
}

// The bloom pass over a row of a frame in which nothing is bright.
void PrintRowWithoutSource() {
  const std::vector<FramePackets> plain = MakeFrames("plain", 1);
  BenchNode node(MakeCalibration());
  StagedRoad(node).RunRows(plain.front(), kMiniflashRows - 1);  // the frame stays open
  constexpr int kRow = 17;
  constexpr int kRepeats = 1000;
  constexpr int kSamples = 15;
  LidarNodeTestAccess access = node.Access();
  std::vector<double> warm_us;
  std::vector<double> cold_us;
  for (int sample = 0; sample < kSamples; ++sample) {
    OtherTraffic();
    const double start = WallTimeMs();
    access.Bloom(kRow);
    cold_us.push_back(1000.0 * (WallTimeMs() - start));
    warm_us.push_back(1000.0 / kRepeats * TimeMs([&] {
                        for (int i = 0; i < kRepeats; ++i) access.Bloom(kRow);
                      }));
  }
  std::printf("\n| bloom pass, row without a bright source, us | min | median | max |\n");
  std::printf("|---|---|---|---|\n");
  PrintRow("cold", cold_us);
  PrintRow("warm", warm_us);
}

void PrintLive(BothRoads& roads, std::vector<FramePackets>& street, int rounds) {
  const LiveTimes times = MeasureLive(roads, street, rounds);
  std::printf("\n| warm, wall clock, ms per frame | min | median | max |\n|---|---|---|---|\n");
  PrintRow("in memory", times.in_memory);
  PrintRow("over loopback, one packet in flight", times.live);
  PrintRow("live / in memory", Ratios(times.live, times.in_memory));
}

void PrintCpuShare(BothRoads& roads, const std::vector<FramePackets>& street, double seconds) {
  std::printf(
      "\n| frames/s over loopback | node's share of one core | packets lost |\n|---|---|---|\n");
  for (const double rate : {10.0, 20.0, 30.0}) {
    const CpuShare share = MeasureCpuShare(roads.node(), street, rate, seconds);
    std::printf("| %.0f | %.1f %% | %.2f %% |\n", rate, share.percent, share.lost_percent);
  }
}

Options ParseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quick") {
      options.rounds = 9;
      options.side_rounds = 3;
      options.live_seconds = 1.0;
    } else if (argument == "--rounds" && i + 1 < argc) {
      options.rounds = std::atoi(argv[++i]);
    } else if (argument == "--road-only") {
      options.road_only = true;
    } else if (argument == "--profile" && i + 1 < argc) {
      options.profile_frames = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr,
                   "usage: kerul_road [--quick] [--road-only] [--rounds N] | --profile FRAMES\n");
      std::exit(2);
    }
  }
  return options;
}

// For a profiler: the node and nothing else.
int Profile(int frame_count) {
  std::vector<FramePackets> street = MakeFrames("street", 4);
  BothRoads roads;
  for (int i = 0; i < frame_count; ++i) {
    roads.node().Run(roads.Stamp(street[static_cast<std::size_t>(i) % street.size()]));
  }
  return 0;
}

int RunAll(const Options& options) {
  std::vector<FramePackets> street = MakeFrames("street", 4);
  BothRoads roads;
  std::printf("%s", DescribeMachine().c_str());
  PrintRoad("cold", roads.Measure(street, options.rounds, true));
  PrintRoad("warm", roads.Measure(street, options.side_rounds, false));
  PrintStages(roads, street, options.rounds);
  if (!options.road_only) {
    PrintGrowth(roads, street, options.side_rounds);
    PrintRowWithoutSource();
    PrintLive(roads, street, options.side_rounds);
  }
  std::printf("\n%llu point packets of reference and node compared: the same bytes.\n",
              static_cast<unsigned long long>(roads.compared_packets()));
  if (!options.road_only) PrintCpuShare(roads, street, options.live_seconds);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = ParseOptions(argc, argv);
    return options.profile_frames > 0 ? Profile(options.profile_frames) : RunAll(options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kerul_road: %s\n", error.what());
    return 1;
  }
}
