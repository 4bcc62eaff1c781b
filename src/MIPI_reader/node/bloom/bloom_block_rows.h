// The bloom filter over a block none of whose echoes is traced, row by row.
#pragma once

#include <span>

#include "MIPI_reader/node/bloom/bloom_row_sums.h"
#include "MIPI_reader/node/bloom/bloom_trace.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar::bloom {

// What the block's echoes have in common.
struct BlockSources {
  const BloomSuppressCalib& calib;
  std::span<const BloomSource> sources;
  const BloomBlockGains& gains;
  const BlockTemplate& pattern;
};

// Leaves every echo as FilterEcho (bloom_suppression_scalar.h) does, bit for bit. The block lies in
// the frame. `sum_rows`: the form to use.
void FilterBlockByRows(LidarFrame& frame, const BloomBlock& block, const BlockSources& shared,
                       RowSumsForm sum_rows) noexcept;

}  // namespace kerul::lidar::bloom
