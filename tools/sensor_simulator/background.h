// Background light: counts in every bin, and the chance peaks among them.
#pragma once

#include <map>
#include <utility>

#include "sensor_simulator/random.h"

namespace kerul::lidar::simulator {

// Counts of one background level.
struct Background {
  double per_bin;       // mean counts of a bin over all shots
  PoissonTable bin;     // counts of one bin
  PoissonTable triple;  // counts of three neighbouring bins

  explicit Background(double mean) : per_bin(mean), bin(mean), triple(3.0 * mean) {}
  double baseline() const noexcept { return 3.0 * per_bin; }
};

// Makes each level once and keeps it.
class BackgroundTables {
 public:
  // noise: counts per shot and bin times 2048.
  const Background& Of(int noise, int shots);

 private:
  std::map<std::pair<int, int>, Background> tables_;
  std::pair<int, int> last_key_ = {-1, -1};
  const Background* last_ = nullptr;
};

// The two largest three-bin sums of a whole histogram without a pulse, larger first. Neighbouring
// sums share bins: a thousand of them count as some six hundred independent ones.
std::pair<int, int> LargestNoiseSums(const Background& background, Random& random) noexcept;

}  // namespace kerul::lidar::simulator
