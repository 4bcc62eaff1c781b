#include "sensor_simulator/random.h"

#include <cmath>

namespace kerul::lidar::simulator {
namespace {

std::uint64_t SplitMix(std::uint64_t& state) noexcept {
  state += 0x9E3779B97F4A7C15ULL;
  std::uint64_t z = state;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

constexpr std::uint64_t RotateLeft(std::uint64_t x, int bits) noexcept {
  return (x << bits) | (x >> (64 - bits));
}

// Lower tail of the normal quantile, with q = sqrt(-2 ln p).
double TailQuantile(double q) noexcept {
  const double top =
      ((((-7.784894002430293e-03 * q - 3.223964580411365e-01) * q - 2.400758277161838e+00) * q -
        2.549732539343734e+00) *
           q +
       4.374664141464968e+00) *
          q +
      2.938163982698783e+00;
  const double bottom =
      (((7.784695709041462e-03 * q + 3.224671290700398e-01) * q + 2.445134137142996e+00) * q +
       3.754408661907416e+00) *
          q +
      1.0;
  return top / bottom;
}

}  // namespace

std::uint64_t MixSeed(std::uint64_t a, std::uint64_t b) noexcept {
  std::uint64_t state = a ^ RotateLeft(b * 0xD1342543DE82EF95ULL + 1, 32);
  SplitMix(state);
  return SplitMix(state);
}

// P. J. Acklam's rational approximation of the inverse normal distribution.
double NormalQuantile(double p) noexcept {
  constexpr double kTail = 0.02425;
  if (p < kTail) return TailQuantile(std::sqrt(-2.0 * std::log(p)));
  if (p > 1.0 - kTail) return -TailQuantile(std::sqrt(-2.0 * std::log(1.0 - p)));
  const double q = p - 0.5;
  const double r = q * q;
  const double top =
      ((((-3.969683028665376e+01 * r + 2.209460984245205e+02) * r - 2.759285104469687e+02) * r +
        1.383577518672690e+02) *
           r -
       3.066479806614716e+01) *
          r +
      2.506628277459239e+00;
  const double bottom =
      ((((-5.447609879822406e+01 * r + 1.615858368580409e+02) * r - 1.556989798598866e+02) * r +
        6.680131188771972e+01) *
           r -
       1.328068155288572e+01) *
          r +
      1.0;
  return top * q / bottom;
}

Random::Random(std::uint64_t seed) noexcept : state_{} {
  for (std::uint64_t& word : state_) word = SplitMix(seed);
}

std::uint64_t Random::Next() noexcept {
  const std::uint64_t result = RotateLeft(state_[1] * 5, 7) * 9;
  const std::uint64_t shifted = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= shifted;
  state_[3] = RotateLeft(state_[3], 45);
  return result;
}

double Random::Uniform() noexcept { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }

double Random::Normal() noexcept {
  // Half a step off zero, where the quantile is infinite.
  return NormalQuantile(Uniform() + 0x1.0p-54);
}

int Random::Poisson(double mean) noexcept {
  constexpr double kInversionLimit = 30.0;
  if (!(mean > 0.0)) return 0;
  if (mean >= kInversionLimit) {
    const double value = mean + std::sqrt(mean) * Normal() + 0.5;
    return value > 0.0 ? static_cast<int>(value) : 0;
  }
  const double u = Uniform();
  double term = std::exp(-mean);
  double sum = term;
  int count = 0;
  while (u >= sum && count < 200) {
    ++count;
    term *= mean / count;
    sum += term;
  }
  return count;
}

std::uint32_t Random::Below(std::uint32_t limit) noexcept {
  return static_cast<std::uint32_t>(((Next() >> 32) * limit) >> 32);
}

PoissonTable::PoissonTable(double mean) : mean_(mean) {
  double term = std::exp(-mean);
  double sum = term;
  cumulative_.push_back(sum);
  const double last = mean + 12.0 * std::sqrt(mean) + 24.0;
  for (int count = 1; count < last; ++count) {
    term *= mean / count;
    sum += term;
    cumulative_.push_back(sum);
  }
  cumulative_.back() = 1.0;
  std::uint16_t count = 0;
  for (int i = 0; i < kGuideEntries; ++i) {
    const double u = static_cast<double>(i) / kGuideEntries;
    while (cumulative_[count] <= u) ++count;
    guide_[static_cast<std::size_t>(i)] = count;
  }
}

int PoissonTable::Quantile(double u) const noexcept {
  std::size_t count = guide_[static_cast<std::size_t>(u * kGuideEntries)];
  while (cumulative_[count] <= u) ++count;
  return static_cast<int>(count);
}

}  // namespace kerul::lidar::simulator
