// What the viewer counts, and how it says so.
#pragma once

#include <cstdint>
#include <string>

namespace kerul::lidar::view {

// Running totals since the start.
struct ViewCounts {
  std::uint64_t complete = 0;    // frames with all their blocks
  std::uint64_t incomplete = 0;  // frames closed with blocks missing
  std::uint64_t missing = 0;     // frames passed over, by their ids
  std::uint64_t packets = 0;     // sound point packets
  std::uint64_t invalid = 0;     // datagrams that are no point packets
  std::uint64_t lost = 0;        // packets missed, by their numbers
  double latency_sum_ms = 0.0;   // time stamp to arrival, over all sound packets
};

// What happened between two looks at the counts, `seconds` apart. The latency is the mean over the
// packets in between. Example:
//   frames/s 10.0  packets/s 17280  lost 0  incomplete 0  missing 0  latency 0.42 ms
// Loss, incomplete and missing frames are totals; "  invalid N" is added if there are any.
std::string FormatStatus(const ViewCounts& before, const ViewCounts& now, double seconds);

// key=value lines: frames, complete, incomplete, missing_frames, packets, invalid, lost, seconds,
// frames_per_s, latency_ms (mean). Frames are complete and incomplete ones together.
std::string FormatSummary(const ViewCounts& counts, double seconds);

}  // namespace kerul::lidar::view
