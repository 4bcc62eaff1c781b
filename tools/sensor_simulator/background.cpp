#include "sensor_simulator/background.h"

#include <algorithm>
#include <cmath>

namespace kerul::lidar::simulator {
namespace {

constexpr double kIndependentSums = 600.0;
constexpr double kBelowOne = 1.0 - 0x1.0p-53;

}  // namespace

const Background& BackgroundTables::Of(int noise, int shots) {
  const std::pair<int, int> key{noise, shots};
  if (key != last_key_ || last_ == nullptr) {
    auto found = tables_.find(key);
    if (found == tables_.end()) {
      found = tables_.emplace(key, Background(noise * static_cast<double>(shots) / 2048.0)).first;
    }
    last_ = &found->second;
    last_key_ = key;
  }
  return *last_;
}

std::pair<int, int> LargestNoiseSums(const Background& background, Random& random) noexcept {
  // The largest of n draws lies at the n-th root of a uniform number on the distribution function,
  // the next largest at a root of another times that.
  const double first = std::exp(std::log(random.Uniform() + 0x1.0p-54) / kIndependentSums);
  const double second =
      first * std::exp(std::log(random.Uniform() + 0x1.0p-54) / (kIndependentSums - 1.0));
  return {background.triple.Quantile(std::min(first, kBelowOne)),
          background.triple.Quantile(std::min(second, kBelowOne))};
}

}  // namespace kerul::lidar::simulator
