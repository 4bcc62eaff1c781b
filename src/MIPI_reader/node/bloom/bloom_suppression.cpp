#include "MIPI_reader/node/bloom/bloom_suppression.h"

#include "MIPI_reader/node/bloom/bloom_suppression_scalar.h"

namespace kerul::lidar {
namespace {

// A type of this file alone lets the compiler treat the pass as this file's own code.
struct NodeTraces : bloom::PrintingTraces {};

}  // namespace

void SuppressBlooming(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib,
                      bool filter_enable, const BloomTrace& trace, std::uint32_t possible_rows) {
  bloom::SuppressRow(frame, m_row, calib, filter_enable, possible_rows, NodeTraces{{trace, calib}});
}

}  // namespace kerul::lidar
