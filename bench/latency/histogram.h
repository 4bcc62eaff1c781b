// A picture of how often which latency occurs.
#pragma once

#include <string>
#include <vector>

namespace kerul::lidar::bench {

struct LatencyRun {
  std::string name;        // as the legend has it
  std::vector<double> us;  // microseconds, one for each row
};

// Writes an SVG file: latency on a logarithmic axis, share of the rows on another one, a line for
// each run. Throws std::runtime_error when the file cannot be written.
void WriteHistogram(const std::string& path, const std::vector<LatencyRun>& runs);

}  // namespace kerul::lidar::bench
