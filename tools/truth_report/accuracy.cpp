#include "truth_report/accuracy.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kerul_lidar/point_payload.h"
#include "sensor_simulator/scenes.h"
#include "truth_report/node_run.h"
#include "truth_report/return_kinds.h"

namespace kerul::lidar::report {
namespace {

constexpr double kHalfRangeStep = 0.002;  // metres

// Nearest rank: the smallest value that at least `share` of them do not exceed.
double Quantile(const std::vector<double>& sorted, double share) {
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(sorted.size())));
  return sorted[std::max<std::size_t>(rank, 1) - 1];
}

std::string Line(const char* name, std::size_t sent, const BandAccuracy& band) {
  const ErrorSummary& range = band.range_m;
  const ErrorSummary& refl = band.reflectivity;
  char text[240];
  if (range.count == 0) {
    std::snprintf(text, sizeof(text), "| %s | %zu | 0 | | | | | | | | |\n", name, sent);
    return text;
  }
  std::snprintf(text, sizeof(text),
                "| %s | %zu | %zu | %.1f | %.1f | %+.1f | %+.1f | %.1f | %.1f | %+.1f | %+.1f |\n",
                name, sent, range.count, range.median_abs * 1e3, range.p95_abs * 1e3,
                range.median_signed * 1e3, band.range_offset_m * 1e3, refl.median_abs * 1e2,
                refl.p95_abs * 1e2, refl.median_signed * 1e2, band.reflectivity_offset * 1e2);
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
        AddEcho(truth.truth[index][static_cast<std::size_t>(echo)], echo, published,
                published.At(echo, row, col));
      }
    }
  }
}

void AccuracyCollector::AddEcho(const simulator::EchoTruth& truth, int echo,
                                const CollectedFrame& published, const FramePoint& point) {
  if (truth.sent == 0 || !IsSurface(truth.kind)) return;
  const double true_range = static_cast<double>(truth.range_m);
  const std::size_t band = BandOf(true_range);
  if (band == kBands) return;
  const bool retro = truth.kind == simulator::ReturnKind::kRetro;
  if (!retro) ++bands_[band].sent;
  const PointPayload payload = DecodePointPayload(published.key.output_mode, point.payload.data());
  if (point.distance == 0 || payload.filled) return;
  const double range_error = static_cast<double>(published.RangeM(point)) - true_range;
  if (retro) {
    retro_range_m_.push_back(range_error);
    return;
  }
  bands_[band].range_m.push_back(range_error);
  const double true_reflectivity = static_cast<double>(truth.reflectivity);
  const double error = payload.reflectivity - true_reflectivity;
  bands_[band].reflectivity.push_back(error / true_reflectivity);
  bands_[band].reflectivity_mid_step.push_back((error + 0.5) / true_reflectivity);
  if (echo != 0) return;
  BodyErrors& body = bodies_[truth.body];
  body.range_m.push_back(true_range);
  body.reflectivity.push_back(true_reflectivity);
  body.strength.push_back(static_cast<double>(truth.strength));
  body.range_errors_m.push_back(range_error + kHalfRangeStep);
  body.reflectivity_errors.push_back((error + 0.5) / true_reflectivity);
}

BandAccuracy AccuracyCollector::Band(std::size_t band) const {
  const BandErrors& errors = bands_[band];
  BandAccuracy accuracy;
  accuracy.range_m = Summarise(errors.range_m);
  accuracy.reflectivity = Summarise(errors.reflectivity);
  if (accuracy.range_m.count == 0) return accuracy;
  accuracy.range_offset_m = accuracy.range_m.median_signed + kHalfRangeStep;
  accuracy.reflectivity_offset = Summarise(errors.reflectivity_mid_step).median_signed;
  return accuracy;
}

std::map<int, BodyAccuracy> AccuracyCollector::Bodies() const {
  std::map<int, BodyAccuracy> bodies;
  for (const auto& [index, errors] : bodies_) {
    const ErrorSummary range = Summarise(errors.range_errors_m);
    const ErrorSummary reflectivity = Summarise(errors.reflectivity_errors);
    BodyAccuracy& body = bodies[index];
    body.count = range.count;
    body.range_m = Summarise(errors.range_m).median_signed;
    body.reflectivity = Summarise(errors.reflectivity).median_signed;
    body.strength = Summarise(errors.strength).median_signed;
    body.range_offset_m = range.median_signed;
    body.range_p95_m = range.p95_abs;
    body.reflectivity_offset = reflectivity.median_signed;
    body.reflectivity_p95 = reflectivity.p95_abs;
  }
  return bodies;
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
      "| band, m | sent | published | range error, mm: median | 95 % | signed | mid-step "
      "| reflectivity error, %: median | 95 % | signed | mid-step |\n"
      "|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n";
  for (std::size_t band = 0; band < kBands; ++band) {
    char name[40];
    std::snprintf(name, sizeof(name), "%.0f to %.0f", kBandEdges[band], kBandEdges[band + 1]);
    table += Line(name, errors.Sent(band), errors.Band(band));
  }
  return table;
}

std::string BodyTable(const AccuracyCollector& errors) {
  std::string table =
      "| body | range, m | reflectivity | strength | returns | range: offset, mm | 95 %, mm "
      "| reflectivity: offset, % | 95 %, % |\n"
      "|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n";
  for (const auto& [index, body] : errors.Bodies()) {
    char text[160];
    std::snprintf(text, sizeof(text),
                  "| %d | %.2f | %.0f | %.0f | %zu | %+.1f | %.1f | %+.1f | %.1f |\n", index,
                  body.range_m, body.reflectivity, body.strength, body.count,
                  body.range_offset_m * 1e3, body.range_p95_m * 1e3, body.reflectivity_offset * 1e2,
                  body.reflectivity_p95 * 1e2);
    table += text;
  }
  return table;
}

}  // namespace kerul::lidar::report
