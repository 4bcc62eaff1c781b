// Published ranges and reflectivities held against the ground truth, by range band.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kerul_lidar/frame_collector.h"
#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::report {

inline constexpr std::array<double, 8> kBandEdges = {0, 2, 5, 10, 15, 20, 30, 40};  // metres
inline constexpr std::size_t kBands = kBandEdges.size() - 1;

// Sizes of errors and where they lie. All zero without a value.
struct ErrorSummary {
  std::size_t count = 0;
  double median_abs = 0.0;
  double p95_abs = 0.0;
  double median_signed = 0.0;
};

ErrorSummary Summarise(const std::vector<double>& errors);

struct BandAccuracy {
  ErrorSummary range_m;       // published minus true range
  ErrorSummary reflectivity;  // (published - true) / true
  // Signed medians with each published value taken for the middle of its step. Values are cut to
  // the lower end of their step; this removes the error of that cut.
  double range_offset_m = 0.0;
  double reflectivity_offset = 0.0;
};

// One body of the scene: medians over its returns, echo slot 0 only.
struct BodyAccuracy {
  std::size_t count = 0;
  double range_m = 0.0;              // true
  double reflectivity = 0.0;         // true
  double strength = 0.0;             // true, expected detections per 160 shots
  double range_offset_m = 0.0;       // published minus true, middle of the step
  double range_p95_m = 0.0;          // of the absolute error
  double reflectivity_offset = 0.0;  // relative, middle of the step
  double reflectivity_p95 = 0.0;
};

// The band that holds a true range; kBands when none does.
std::size_t BandOf(double range_m) noexcept;

// Collects the errors of all returns of real surfaces that were sent and published. Leaves out
// returns that a pass filled in, false returns, and retro-reflectors: their reflectivity is beyond
// the scale, and their ranges are counted apart.
class AccuracyCollector {
 public:
  void Add(const simulator::SimulatedFrame& truth, const CollectedFrame& published);

  BandAccuracy Band(std::size_t band) const;
  // By index into the scene's bodies, those without a return left out.
  std::map<int, BodyAccuracy> Bodies() const;
  ErrorSummary RetroRange() const;
  // Returns of real surfaces that the sensor sent, in a band, published or not.
  std::size_t Sent(std::size_t band) const { return bands_[band].sent; }

 private:
  struct BandErrors {
    std::size_t sent = 0;
    std::vector<double> range_m;
    std::vector<double> reflectivity;
    std::vector<double> reflectivity_mid_step;
  };
  struct BodyErrors {
    std::vector<double> range_m;       // true
    std::vector<double> reflectivity;  // true
    std::vector<double> strength;
    std::vector<double> range_errors_m;
    std::vector<double> reflectivity_errors;
  };
  void AddEcho(const simulator::EchoTruth& truth, int echo, const CollectedFrame& published,
               const FramePoint& point);

  std::array<BandErrors, kBands> bands_;
  std::map<int, BodyErrors> bodies_;
  std::vector<double> retro_range_m_;
};

struct AccuracyRun {
  AccuracyCollector calibrated;  // without any pass
  AccuracyCollector processed;   // with all default passes
};

// Frames 0 to frames - 1 of a scene. Throws what scene and node throw.
AccuracyRun MeasureAccuracy(const std::string& scene, std::uint32_t frames,
                            const simulator::SimulatorOptions& options = {});

// One Markdown table, a line for each band.
std::string AccuracyTable(const AccuracyCollector& errors);
// A line for each body.
std::string BodyTable(const AccuracyCollector& errors);

}  // namespace kerul::lidar::report
