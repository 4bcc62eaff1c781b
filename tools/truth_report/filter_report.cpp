#include "truth_report/filter_report.h"

#include <cstdio>

#include "sensor_simulator/scenes.h"
#include "truth_report/accuracy.h"

namespace kerul::lidar::report {
namespace {

using simulator::ReturnKind;

std::string Row(const char* name, const Fate& fate) {
  if (fate.before == 0) return {};
  char text[160];
  std::snprintf(text, sizeof(text), "| %s | %zu | %zu | %.2f |\n", name, fate.before, fate.removed,
                100.0 * static_cast<double>(fate.removed) / static_cast<double>(fate.before));
  return text;
}

std::string FateTable(const FateCounts& counts) {
  return std::string("| returns | published without | removed | % |\n|---|--:|--:|--:|\n") +
         Row("noise", counts.Of(ReturnKind::kNoise)) +
         Row("noise, isolated", counts.isolated_noise) +
         Row("crosstalk", counts.Of(ReturnKind::kCrosstalk)) +
         Row("crosstalk, first slot", counts.first_crosstalk) +
         Row("crosstalk, first slot, narrow", counts.first_narrow_crosstalk) +
         Row("after-pulses", counts.Of(ReturnKind::kAfterPulse)) +
         Row("bloom", counts.Of(ReturnKind::kBloom)) + Row("surfaces", counts.Surfaces()) +
         Row("ground", counts.Of(ReturnKind::kGround)) +
         Row("walls", counts.Of(ReturnKind::kWall)) +
         Row("objects", counts.Of(ReturnKind::kObject)) +
         Row("fences", counts.Of(ReturnKind::kFence)) +
         Row("surfaces below the detection level", counts.weak) +
         Row("retro-reflectors", counts.Of(ReturnKind::kRetro));
}

std::string PassSection(const char* title, const char* scene, std::uint32_t frames,
                        const Passes& without, const Passes& with) {
  const FateCounts counts = MeasurePass(scene, frames, without, with);
  std::string text = std::string(title) + ", scene `" + scene + "`:\n\n" + FateTable(counts);
  const FillCounts& filled = counts.filled;
  if (filled.right + filled.wrong + filled.unknown > 0) {
    char line[160];
    std::snprintf(line, sizeof(line),
                  "\nFilled returns: %zu at a true surface, %zu elsewhere, %zu where no surface is "
                  "known.\n",
                  filled.right, filled.wrong, filled.unknown);
    text += line;
  }
  return text + "\n";
}

std::string BloomRow(const char* name, const Fate& fate) {
  char text[160];
  std::snprintf(text, sizeof(text), "| %s | %zu | %zu | %zu | %zu |\n", name, fate.before,
                fate.marked, fate.removed, fate.dimmed);
  return text;
}

std::string BloomSection(const char* scene, std::uint32_t frames) {
  const FateCounts counts = MeasurePass(scene, frames, DefaultWithoutBloom(), kDefaultPasses);
  std::string text = std::string("Bloom, all other passes on, scene `") + scene +
                     "`:\n\n| returns | published without | marked | removed | dimmed |\n"
                     "|---|--:|--:|--:|--:|\n" +
                     BloomRow("bloom", counts.Of(ReturnKind::kBloom)) +
                     BloomRow("surfaces", counts.Surfaces()) +
                     BloomRow("retro-reflectors", counts.Of(ReturnKind::kRetro));
  char line[240];
  std::snprintf(line, sizeof(line),
                "\nUnmarked bloom without a recognised source in the 3 x 3 blocks: %zu.\n",
                counts.bloom_without_source);
  text += line;
  if (!counts.marked_error_before.empty()) {
    const ErrorSummary before = Summarise(counts.marked_error_before);
    const ErrorSummary after = Summarise(counts.marked_error_after);
    std::snprintf(line, sizeof(line),
                  "Reflectivity error of marked surfaces that were kept: signed median %+.1f %% "
                  "without, %+.1f %% with; absolute median %.1f %% and %.1f %%.\n",
                  before.median_signed * 1e2, after.median_signed * 1e2, before.median_abs * 1e2,
                  after.median_abs * 1e2);
    text += line;
  }
  return text + "\n";
}

std::string GroundRow(const std::string& name, const GroundBand& stage1, const GroundBand& plane) {
  const auto percent = [](std::size_t part, std::size_t whole) {
    return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  };
  char text[200];
  std::snprintf(text, sizeof(text), "| %s | %zu | %.1f | %.1f | %zu | %zu | %zu |\n", name.c_str(),
                stage1.ground, percent(stage1.right, stage1.ground),
                percent(plane.right, plane.ground), stage1.other, stage1.wrong, plane.wrong);
  return text;
}

std::string GroundSection(const char* scene, std::uint32_t frames) {
  const GroundLabels stage1 = MeasureGround(scene, frames, kDefaultPasses);
  const GroundLabels plane = MeasureGround(scene, frames, DefaultWithPlane());
  std::string text = std::string("Ground, scene `") + scene +
                     "`:\n\n| pixel rows | returns on ground | labelled, % | with plane, % "
                     "| other returns | labelled | with plane |\n"
                     "|---|--:|--:|--:|--:|--:|--:|\n";
  for (std::size_t band = 0; band < kGroundBands; ++band) {
    const std::string name = std::to_string(kGroundBandEdges[band]) + " to " +
                             std::to_string(kGroundBandEdges[band + 1] - 1);
    text += GroundRow(name, stage1.bands[band], plane.bands[band]);
  }
  text += GroundRow("all", stage1.All(), plane.All());
  const ErrorSummary range1 = Summarise(stage1.range_errors_m);
  const ErrorSummary range2 = Summarise(plane.range_errors_m);
  char line[200];
  std::snprintf(line, sizeof(line),
                "\nRange error on ground: median %.1f mm, 95 %% %.1f mm; with the plane stage %.1f "
                "mm, %.1f mm.\n\n",
                range1.median_abs * 1e3, range1.p95_abs * 1e3, range2.median_abs * 1e3,
                range2.p95_abs * 1e3);
  return text + line;
}

}  // namespace

Passes DefaultWithoutNeighbours() {
  Passes passes = kDefaultPasses;
  passes.neighbours = false;
  return passes;
}

Passes DefaultWithoutShotNoise() {
  Passes passes = kDefaultPasses;
  passes.shot_noise = false;
  return passes;
}

Passes DefaultWithoutBloom() {
  Passes passes = kDefaultPasses;
  passes.bloom = false;
  return passes;
}

Passes DefaultWithPlane() {
  Passes passes = kDefaultPasses;
  passes.plane = true;
  return passes;
}

FateCounts MeasurePass(const std::string& scene, std::uint32_t frames, const Passes& without,
                       const Passes& with) {
  simulator::FrameSimulator sensor(simulator::MakeScene(scene));
  const simulator::CalibrationBlobs calibration = simulator::MakeBlobs(sensor.options());
  NodeRun before(without, calibration);
  NodeRun after(with, calibration);
  FateCounts counts;
  for (std::uint32_t number = 0; number < frames; ++number) {
    const simulator::SimulatedFrame frame = sensor.Simulate(number);
    CountFates(frame, before.Publish(frame), after.Publish(frame), counts);
  }
  return counts;
}

GroundLabels MeasureGround(const std::string& scene, std::uint32_t frames, const Passes& passes) {
  simulator::FrameSimulator sensor(simulator::MakeScene(scene));
  NodeRun node(passes, simulator::MakeBlobs(sensor.options()));
  GroundLabels labels;
  for (std::uint32_t number = 0; number < frames; ++number) {
    const simulator::SimulatedFrame frame = sensor.Simulate(number);
    CountGroundLabels(frame, node.Publish(frame), labels);
  }
  return labels;
}

std::string FilterReport(std::uint32_t frames) {
  std::string text;
  for (const char* scene : {"noise", "street", "retro"}) {
    text += PassSection("Neighbour validation, all other passes on", scene, frames,
                        DefaultWithoutNeighbours(), kDefaultPasses);
  }
  Passes shot_noise_alone = kNoPasses;
  shot_noise_alone.shot_noise = true;
  text += PassSection("Shot noise, all other passes on", "crosstalk", frames,
                      DefaultWithoutShotNoise(), kDefaultPasses);
  for (const char* scene : {"street", "noise", "retro"}) {
    text += PassSection("Shot noise, all other passes on", scene, frames, DefaultWithoutShotNoise(),
                        kDefaultPasses);
  }
  text += PassSection("Shot noise, no other pass on", "retro", frames, kNoPasses, shot_noise_alone);
  for (const char* scene : {"retro", "street", "noise"}) text += BloomSection(scene, frames);
  return text + GroundSection("street", frames);
}

}  // namespace kerul::lidar::report
