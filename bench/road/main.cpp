// The whole road from datagram in memory to point packets in the ring, beside the plain reference
// and the copy floors, in one process and in turn. Prints Markdown.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "road/both_roads.h"
#include "support/measuring.h"

namespace {

using namespace kerul::lidar::bench;

struct Options {
  int rounds = 41;
  int warm_rounds = 11;
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

Options ParseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quick") {
      options = {.rounds = 9, .warm_rounds = 3};
    } else if (argument == "--rounds" && i + 1 < argc) {
      options.rounds = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "usage: kerul_road [--quick] [--rounds N]\n");
      std::exit(2);
    }
  }
  return options;
}

int RunAll(const Options& options) {
  std::vector<FramePackets> street = MakeFrames("street", 4);
  BothRoads roads;
  std::printf("%s", DescribeMachine().c_str());
  PrintRoad("cold", roads.Measure(street, options.rounds, true));
  PrintRoad("warm", roads.Measure(street, options.warm_rounds, false));
  std::printf("\n%llu point packets of both compared: the same bytes.\n",
              static_cast<unsigned long long>(roads.compared_packets()));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunAll(ParseOptions(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kerul_road: %s\n", error.what());
    return 1;
  }
}
