// From light to counts: the shape of a pulse and how the detector answers to it.
//
// A pixel is an array of single-photon cells. A cell that fires is dead for a while and recovers
// gradually. So a strong pulse is counted early (its centre walks towards the sensor), and its
// counts saturate.
#pragma once

#include <array>
#include <vector>

namespace kerul::lidar::simulator {

inline constexpr double kBinMetres = 0.15;  // one histogram bin of range
inline constexpr int kPulseBins = 24;

struct PulseModel {
  double sigma_bins = 0.58;        // of the laser pulse
  double tail_share = 0.08;        // share of the light in the exponential tail
  double tail_bins = 1.5;          // decay of the tail
  double cells = 12.0;             // single-photon cells of a pixel
  double recovery_per_bin = 0.12;  // share of the dead cells that come back within one bin
};

// Expected counts of one pulse, summed over all shots.
struct PulseCounts {
  int first_bin = 0;  // histogram bin of counts[0]
  std::array<float, kPulseBins> counts{};

  double At(int bin) const noexcept {
    const int i = bin - first_bin;
    return i < 0 || i >= kPulseBins ? 0.0
                                    : static_cast<double>(counts[static_cast<std::size_t>(i)]);
  }
};

// Where the three-bin sum of a pulse is largest.
struct PulsePeak {
  int bin = 0;
  double sum = 0.0;
};
PulsePeak LargestThreeBinSum(const PulseCounts& pulse) noexcept;

class PulseResponse {
 public:
  explicit PulseResponse(const PulseModel& model);

  // strength: expected detections per 160 shots if no cell were ever dead. position: the laser
  // pulse's centre in bins, a whole number being the middle of a bin.
  PulseCounts Counts(double strength, double position, double shots) const noexcept;

 private:
  double ShareBefore(double offset_bins) const noexcept;

  PulseModel model_;
  std::vector<double> cumulative_;  // share of the light before an offset from the centre
};

}  // namespace kerul::lidar::simulator
