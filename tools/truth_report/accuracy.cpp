#include "truth_report/accuracy.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "point_payload.h"
#include "sensor_simulator/scenes.h"
#include "truth_report/node_run.h"
#include "truth_report/return_kinds.h"

namespace kerul::lidar::report {
namespace {

// Nearest rank: the smallest value that at least `share` of them do not exceed.
double Quantile(const std::vector<double>& sorted, double share) {
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(sorted.size())));
  return sorted[std::max<std::size_t>(rank, 1) - 1];
}

std::string Line(const char* name, std::size_t sent, const BandAccuracy& band) {
  char text[200];
  const ErrorSummary& range = band.range_m;
  const ErrorSummary& refl = band.reflectivity;
  std::snprintf(text, sizeof(text),
                "| %s | %zu | %zu | %.1f | %.1f | %+.1f | %.1f | %.1f | %+.1f |\n", name, sent,
                range.count, range.median_abs * 1e3, range.p95_abs * 1e3, range.median_signed * 1e3,
                refl.median_abs * 1e2, refl.p95_abs * 1e2, refl.median_signed * 1e2);
  return text;
}

}  // namespace

ErrorSummary Summarise(const std::vector<double>& errors) {
  ErrorSummary summary;
  summary.count = errors.size();
  if (errors.empty()) return summary;
  std::vector<double> sorted = errors;
  std::sort(sorted.begin(), sorted.end());
  summary.median_signed = Quantile(sorted, 0.5);
  for (double& error : sorted) error = std::abs(error);
  std::sort(sorted.begin(), sorted.end());
  summary.median_abs = Quantile(sorted, 0.5);
  summary.p95_abs = Quantile(sorted, 0.95);
  return summary;
}

std::size_t BandOf(double range_m) noexcept {
  if (!(range_m >= kBandEdges.front() && range_m < kBandEdges.back())) return kBands;
  const auto* edge = std::upper_bound(kBandEdges.begin(), kBandEdges.end(), range_m);
  return static_cast<std::size_t>(edge - kBandEdges.begin()) - 1;
}

void AccuracyCollector::Add(const simulator::SimulatedFrame& truth,
                            const CollectedFrame& published) {
  for (int row = 0; row < kFrameRows; ++row) {
    for (int col = 0; col < kFrameCols; ++col) {
      const auto index = static_cast<std::size_t>(row * kFrameCols + col);
      for (int echo = 0; echo < kMaxEchoes; ++echo) {
        AddEcho(truth.truth[index][static_cast<std::size_t>(echo)], published,
                published.At(echo, row, col));
      }
    }
  }
}

void AccuracyCollector::AddEcho(const simulator::EchoTruth& truth, const CollectedFrame& published,
                                const FramePoint& point) {
  if (truth.sent == 0 || !IsSurface(truth.kind)) return;
  const double true_range = static_cast<double>(truth.range_m);
  const std::size_t band = BandOf(true_range);
  if (band == kBands) return;
  const bool retro = truth.kind == simulator::ReturnKind::kRetro;
  if (!retro) ++bands_[band].sent;
  const PointPayload payload =
      DecodePointPayload(published.key.output_mode, point.payload.data());
  if (point.distance == 0 || payload.filled) return;
  const double range_error = static_cast<double>(published.RangeM(point)) - true_range;
  if (retro) {
    retro_range_m_.push_back(range_error);
    return;
  }
  bands_[band].range_m.push_back(range_error);
  const double true_reflectivity = static_cast<double>(truth.reflectivity);
  bands_[band].reflectivity.push_back((payload.reflectivity - true_reflectivity) /
                                      true_reflectivity);
}

BandAccuracy AccuracyCollector::Band(std::size_t band) const {
  return {Summarise(bands_[band].range_m), Summarise(bands_[band].reflectivity)};
}

ErrorSummary AccuracyCollector::RetroRange() const { return Summarise(retro_range_m_); }

AccuracyRun MeasureAccuracy(const std::string& scene, std::uint32_t frames,
                            const simulator::SimulatorOptions& options) {
  simulator::FrameSimulator sensor(simulator::MakeScene(scene), options);
  const simulator::CalibrationBlobs calibration = simulator::MakeBlobs(options);
  NodeRun without_passes(kNoPasses, calibration);
  NodeRun with_passes(kDefaultPasses, calibration);
  AccuracyRun run;
  for (std::uint32_t number = 0; number < frames; ++number) {
    const simulator::SimulatedFrame frame = sensor.Simulate(number);
    run.calibrated.Add(frame, without_passes.Publish(frame));
    run.processed.Add(frame, with_passes.Publish(frame));
  }
  return run;
}

std::string AccuracyTable(const AccuracyCollector& errors) {
  std::string table =
      "| band, m | sent | published | range error, mm: median | 95 % | signed median "
      "| reflectivity error, %: median | 95 % | signed median |\n"
      "|---|--:|--:|--:|--:|--:|--:|--:|--:|\n";
  for (std::size_t band = 0; band < kBands; ++band) {
    char name[40];
    std::snprintf(name, sizeof(name), "%.0f to %.0f", kBandEdges[band], kBandEdges[band + 1]);
    table += Line(name, errors.Sent(band), errors.Band(band));
  }
  return table;
}

}  // namespace kerul::lidar::report
