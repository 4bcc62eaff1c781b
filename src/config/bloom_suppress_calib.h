// Tuning of the bloom pass: one block, copied as a whole out of the configuration.
#pragma once

#include <cstdint>

namespace kerul::lidar {

inline constexpr int kPsfEntries = 32;   // entry i stands for a distance of i / 2 pixels
inline constexpr int kTemplateSide = 6;  // the template covers a block of 6 x 6 pixels

// A default-constructed record is the built-in state of a node without a configuration for it:
// first byte 1, the float after it 1.0, the byte after that 1, the rest zero.
struct BloomSuppressCalib {
  bool enable = true;                      // false: the whole pass returns at once
  float psf_coeff = 1.0F;                  // scale of the summed PSF power
  bool dist_neighbor_enabled = true;       // use the edge gain
  bool pattern_enabled = false;            // use the power pattern
  bool dist_pattern_enabled = false;       // use the distance spread gain
  float pattern_gain = 0.0F;               // slope of the energy gate in the pattern score
  float pattern_offset = 0.0F;             // offset of the energy gate
  float dist_gate_m = 0.0F;                // source and echo belong together below this, metres
  float source_min_dist_m = 0.0F;          // when above 0, a source must be farther than this
  float edge_neighbor_threshold_m = 0.0F;  // distance limit of the edge gain
  std::int32_t min_n = 0;                  // fewest samples for a pattern score
  float threshold = 0.0F;                  // cogh at or above it: no bloom candidate
  float psf_same_block[kPsfEntries] = {};
  float psf_adjacent_block[kPsfEntries] = {};
  float psf_diagonal_block[kPsfEntries] = {};
  float power_template[kTemplateSide][kTemplateSide] = {};
};

}  // namespace kerul::lidar
