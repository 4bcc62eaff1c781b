#include "sensor_simulator/pulse_model.h"

#include <cmath>
#include <numbers>

namespace kerul::lidar::simulator {
namespace {

constexpr double kFirstOffset = -8.0;  // bins before the centre
constexpr double kLastOffset = 24.0;
constexpr int kStepsPerBin = 64;
constexpr int kBinsBeforeCentre = 6;

double NormalShare(double x) noexcept { return 0.5 * std::erfc(-x / std::numbers::sqrt2); }

// Gauss pulse of width sigma, smeared by an exponential of the given decay.
double SmearedShare(double x, double sigma, double decay) noexcept {
  const double ratio = sigma / decay;
  return NormalShare(x / sigma) -
         std::exp(0.5 * ratio * ratio - x / decay) * NormalShare(x / sigma - ratio);
}

}  // namespace

PulsePeak LargestThreeBinSum(const PulseCounts& pulse) noexcept {
  PulsePeak best{pulse.first_bin + 1, 0.0};
  for (int i = 1; i + 1 < kPulseBins; ++i) {
    const auto at = static_cast<std::size_t>(i);
    const double sum = static_cast<double>(pulse.counts[at - 1]) +
                       static_cast<double>(pulse.counts[at]) +
                       static_cast<double>(pulse.counts[at + 1]);
    if (sum > best.sum) best = {pulse.first_bin + i, sum};
  }
  return best;
}

PulseResponse::PulseResponse(const PulseModel& model) : model_(model) {
  const int entries = static_cast<int>(kLastOffset - kFirstOffset) * kStepsPerBin + 2;
  for (int i = 0; i < entries; ++i) {
    const double x = kFirstOffset + static_cast<double>(i) / kStepsPerBin;
    cumulative_.push_back((1.0 - model.tail_share) * NormalShare(x / model.sigma_bins) +
                          model.tail_share * SmearedShare(x, model.sigma_bins, model.tail_bins));
  }
}

double PulseResponse::ShareBefore(double offset_bins) const noexcept {
  const double place = (offset_bins - kFirstOffset) * kStepsPerBin;
  if (!(place > 0.0)) return 0.0;
  const auto i = static_cast<std::size_t>(place);
  if (i + 1 >= cumulative_.size()) return 1.0;
  return cumulative_[i] + (cumulative_[i + 1] - cumulative_[i]) * (place - static_cast<double>(i));
}

PulseCounts PulseResponse::Counts(double strength, double position, double shots) const noexcept {
  PulseCounts result;
  const int centre = static_cast<int>(std::floor(position + 0.5));
  result.first_bin = centre - kBinsBeforeCentre;
  const double per_cell = strength / (160.0 * model_.cells);
  double alive = 1.0;
  double before = ShareBefore(result.first_bin - 0.5 - position);
  for (int i = 0; i < kPulseBins; ++i) {
    const double after = ShareBefore(result.first_bin + i + 0.5 - position);
    const double light = per_cell * (after - before);
    before = after;
    const double fired = alive * (light < 1e-5 ? light : 1.0 - std::exp(-light));
    result.counts[static_cast<std::size_t>(i)] = static_cast<float>(fired * model_.cells * shots);
    alive += model_.recovery_per_bin * (1.0 - alive) - fired;
  }
  return result;
}

}  // namespace kerul::lidar::simulator
