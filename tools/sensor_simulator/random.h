// Random numbers that are the same with every compiler and library. The distributions of the
// standard library are not, so these are our own.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace kerul::lidar::simulator {

// Mixes two words into a seed; neighbouring inputs give unrelated outputs.
std::uint64_t MixSeed(std::uint64_t a, std::uint64_t b) noexcept;

// Normal quantile of p, 0 < p < 1, to about 1e-9 (rational approximation, three ranges).
double NormalQuantile(double p) noexcept;

// xoshiro256**, 256 bits of state, seeded from one word.
class Random {
 public:
  explicit Random(std::uint64_t seed) noexcept;

  std::uint64_t Next() noexcept;
  double Uniform() noexcept;  // 0 <= u < 1
  double Normal() noexcept;   // mean 0, variance 1
  // Exact by inversion below a mean of 30, a rounded normal above. 0 for a mean that is not
  // positive.
  int Poisson(double mean) noexcept;
  bool Chance(double probability) noexcept { return Uniform() < probability; }
  std::uint32_t Below(std::uint32_t limit) noexcept;  // 0..limit-1, limit above 0

 private:
  std::array<std::uint64_t, 4> state_;
};

// Poisson distribution of one mean, tabulated for many draws.
class PoissonTable {
 public:
  explicit PoissonTable(double mean);

  // Smallest count whose distribution function exceeds u, 0 <= u < 1.
  int Quantile(double u) const noexcept;
  int Draw(Random& random) const noexcept { return Quantile(random.Uniform()); }
  double mean() const noexcept { return mean_; }

 private:
  static constexpr int kGuideEntries = 256;
  double mean_;
  std::vector<double> cumulative_;
  std::array<std::uint16_t, kGuideEntries> guide_{};  // first count to look at, by u
};

}  // namespace kerul::lidar::simulator
