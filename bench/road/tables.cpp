#include "road/tables.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "road/live.h"
#include "road/stages.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {
namespace {

void PrintRow(const std::string& what, const std::vector<double>& values) {
  const Spread spread = SpreadOf(values);
  std::printf("| %s | %.2f | %.2f | %.2f |\n", what.c_str(), spread.min, spread.median, spread.max);
}

// "median (least - most)", three digits after the point.
void PrintCell(const std::vector<double>& values) {
  const Spread spread = SpreadOf(values);
  std::printf(" %.3f (%.3f - %.3f) |", spread.median, spread.min, spread.max);
}

void PrintSetColumns(const char* what, const InstructionSets& sets, const char* last_column) {
  std::printf("\n| %s |", what);
  for (const InstructionSet set : sets) std::printf(" %s |", InstructionSetName(set));
  std::printf("%s\n|---|", last_column);
  for (std::size_t i = 0; i < sets.size(); ++i) std::printf("---|");
  std::printf("%s\n", *last_column == '\0' ? "" : "---|");
}

// By stage, a value for each round.
struct StageRounds {
  std::array<std::vector<double>, kStages> stages;
  std::vector<double> sums;
};

// Each round runs every set once, so that the columns compare what ran at the same time.
std::vector<StageRounds> MeasureStages(BothRoads& roads, std::vector<FramePackets>& frames,
                                       const InstructionSets& sets, int rounds) {
  StagedRoad staged(roads.node());
  std::vector<StageRounds> measured(sets.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sets.size(); ++i) {
      ForceInstructionSet(sets[i]);
      const FramePackets& frame =
          roads.Stamp(frames[static_cast<std::size_t>(round) % frames.size()]);
      OtherTraffic();
      const StageTimes times = staged.Run(frame);
      roads.Feed(frame);
      roads.RequireSameBytes();
      double sum = 0.0;
      for (std::size_t stage = 0; stage < times.size(); ++stage) {
        measured[i].stages[stage].push_back(times[stage]);
        sum += times[stage];
      }
      measured[i].sums.push_back(sum);
    }
  }
  return measured;
}

// One row after other traffic, and rows again and again, us per row.
template <typename Pass>
void PrintRowPass(const std::string& what, Pass&& pass) {
  constexpr int kFirstRow = 2;
  constexpr int kRows = kMiniflashRows - 6;
  constexpr int kRepeats = 50;
  constexpr int kSamples = 15;
  const auto all_rows = [&] {
    for (int m_row = kFirstRow; m_row < kFirstRow + kRows; ++m_row) pass(m_row);
  };
  std::vector<double> cold_us;
  std::vector<double> warm_us;
  for (int sample = 0; sample < kSamples; ++sample) {
    OtherTraffic();
    const double start = WallTimeMs();
    pass(kFirstRow + sample);
    cold_us.push_back(1000.0 * (WallTimeMs() - start));
    all_rows();
    warm_us.push_back(1000.0 / (kRepeats * kRows) * TimeMs([&] {
                        for (int i = 0; i < kRepeats; ++i) all_rows();
                      }));
  }
  PrintRow(what + ", cold", cold_us);
  PrintRow(what + ", warm", warm_us);
}

}  // namespace

void PrintRoad(BothRoads& roads, std::vector<FramePackets>& street, const InstructionSets& sets,
               int rounds, bool cold) {
  const std::vector<RoadTimes> by_set = roads.Measure(street, sets, rounds, cold);
  std::vector<double> reference;
  std::vector<double> copy_packets;
  std::vector<double> copy_records;
  const auto append = [](std::vector<double>& to, const std::vector<double>& more) {
    to.insert(to.end(), more.begin(), more.end());
  };
  for (const RoadTimes& times : by_set) {
    append(reference, times.reference);
    append(copy_packets, times.copy_packets);
    append(copy_records, times.copy_records);
  }
  const auto for_each_set = [&](const std::string& what, const char* behind, auto&& values) {
    for (std::size_t i = 0; i < sets.size(); ++i) {
      PrintRow(what + InstructionSetName(sets[i]) + behind, values(by_set[i]));
    }
  };

  std::printf("\n| %s, ms per frame | min | median | max |\n|---|---|---|---|\n",
              cold ? "cold" : "warm");
  PrintRow("plain reference, -O2", reference);
  for_each_set("node, ", "", [](const RoadTimes& times) { return times.node; });
  PrintRow("floor: copy a frame's packets", copy_packets);
  PrintRow("floor: copy a frame's records", copy_records);
  for_each_set("**reference / node, ", "**",
               [](const RoadTimes& times) { return Ratios(times.reference, times.node); });
  for_each_set("node / record copy, ", "",
               [](const RoadTimes& times) { return Ratios(times.node, times.copy_records); });
}

void PrintStages(BothRoads& roads, std::vector<FramePackets>& street, const InstructionSets& sets,
                 int rounds) {
  const std::vector<StageRounds> measured = MeasureStages(roads, street, sets, rounds);
  const StageRounds& last = measured.back();
  const double whole = SpreadOf(last.sums).median;
  const std::string share = std::string(" share, ") + InstructionSetName(sets.back()) + " |";
  PrintSetColumns("stage, cold, ms: median (min - max)", sets, share.c_str());
  for (std::size_t stage = 0; stage < kStages; ++stage) {
    std::printf("| %s |", std::string(StageName(static_cast<int>(stage))).c_str());
    for (const StageRounds& set : measured) PrintCell(set.stages[stage]);
    std::printf(" %.1f %% |\n", 100.0 * SpreadOf(last.stages[stage]).median / whole);
  }
  std::printf("| sum |");
  for (const StageRounds& set : measured) PrintCell(set.sums);
  std::printf(" |\n");
}

void PrintNeighbours(BothRoads& roads, std::vector<FramePackets>& street,
                     const InstructionSets& sets, int rounds) {
  std::vector<FramePackets> full = MakeFrames("full", 2);
  PrintSetColumns("priming and neighbour validation, cold, ms: median (min - max)", sets, "");
  const auto print = [&](const char* what, std::vector<FramePackets>& frames) {
    std::printf("| %s |", what);
    for (const StageRounds& set : MeasureStages(roads, frames, sets, rounds)) {
      PrintCell(set.stages[static_cast<std::size_t>(Stage::kNeighbours)]);
    }
    std::printf("\n");
  };
  print("street", street);
  print("full: all echoes valid", full);
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

void PrintRowWithoutSource() {
  std::vector<FramePackets> plain = MakeFrames("plain", 2);
  std::uint32_t next_frame = 0;
  const auto stamp = [&]() -> const FramePackets& {
    FramePackets& packets = plain[next_frame % plain.size()];
    simulator::StampFrame(packets, next_frame, 0.1 * next_frame);
    ++next_frame;
    return packets;
  };
  BenchNode node(MakeCalibration());
  StagedRoad staged(node);
  LidarNodeTestAccess access = node.Access();
  // In its first frame the node does not know yet which rows can hold nothing bright.
  node.Run(stamp());

  std::printf(
      "\n| bloom pass, row without a bright source, us | min | median | max "
      "|\n|---|---|---|---|\n");
  constexpr int kSamples = 15;
  std::vector<double> in_the_road_us;
  for (int sample = 0; sample < kSamples; ++sample) {
    const FramePackets& frame = stamp();
    OtherTraffic();
    in_the_road_us.push_back(1000.0 / kMiniflashRows *
                             staged.Run(frame)[static_cast<std::size_t>(Stage::kBloom)]);
  }
  PrintRow("in a frame's road, mean of its rows", in_the_road_us);

  staged.RunRows(stamp(), kMiniflashRows - 1);  // this frame stays open
  PrintRowPass("as the node calls it", [&](int m_row) { access.RunPass(RowPass::kBloom, m_row); });
  PrintRowPass("alone, with its own search for sources", [&](int m_row) {
    SuppressBlooming(access.frame(), m_row, access.bloom_calib(),
                     access.config().blooming_filter_enable, BloomTrace{});
  });
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

}  // namespace kerul::lidar::bench
