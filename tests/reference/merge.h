// Merges the raw windows of neighbouring pixels, and the two steps that use them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "reference/records.h"

namespace reference {

// 17 samples around `centre` on the axis, and the sources that went into them, bit i for source i.
struct MergedWindow {
  int centre = 0;
  unsigned mask = 0;
  std::uint16_t samples[17] = {};
};

// Sums the windows on a common axis. Addresses count with their low 12 bits. Fewer than two
// windows, or two that do not meet, give zeros.
MergedWindow MergeHistograms(const std::vector<const std::uint16_t*>& windows,
                             const std::vector<int>& addresses);

// Chooses which of four sources belong together.
MergedWindow PickAndMergeFour(const std::vector<const LidarPoint*>& points, int slot);

// The merged pixel of two or four sources; any other count gives a default point.
LidarPoint MergePoint(const std::vector<const LidarPoint*>& points);

// Fills `target`, of exactly twice the size, from `source`. Any other size: false, no change.
bool Upsample(const LidarFrame& source, LidarFrame& target);

// All bytes of an export file. mode: "raw", "processed", anything else.
std::vector<std::uint8_t> ExportFileBytes(const LidarFrame& frame, const std::string& mode,
                                          int frame_id, std::uint64_t sequence);

}  // namespace reference
