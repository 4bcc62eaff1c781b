#include "MIPI_reader/node/rows/shot_noise_filter.h"

#include "MIPI_reader/node/rows/shot_noise_filter_scalar.h"

namespace kerul::lidar {

void FilterShotNoise(FrameRows& rows, int m_row, int block_columns, float dist_gate_m) {
  const shot_noise::NoTeller nobody;
  shot_noise::FilterRow(rows, m_row, block_columns, dist_gate_m, nobody);
}

}  // namespace kerul::lidar
