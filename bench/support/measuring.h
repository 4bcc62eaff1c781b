// Clocks, spreads and other traffic for measurements.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kerul::lidar::bench {

// Processor time of this thread, ms. Does not count what other programs take of a shared machine.
double ThreadTimeMs();
// The same of another thread that runs.
double ThreadTimeMs(pthread_t thread);
// What one ThreadTimeMs costs, ms.
double ThreadClockCostMs();
// Wall clock, ms.
double WallTimeMs();

// Milliseconds of thread time that `work` takes.
template <typename Work>
double TimeMs(Work&& work) {
  const double start = ThreadTimeMs();
  work();
  return ThreadTimeMs() - start;
}

// Drives everything else out of the caches: reads and writes 100 MB.
void OtherTraffic();

struct Spread {
  double min = 0.0;
  double median = 0.0;
  double max = 0.0;
};
Spread SpreadOf(std::vector<double> values);
// Element by element; both of one length.
std::vector<double> Ratios(const std::vector<double>& upper, const std::vector<double>& lower);

// Processor, cores, load, compiler and flags as Markdown lines; warns of a build without
// optimisation.
std::string DescribeMachine();

}  // namespace kerul::lidar::bench
