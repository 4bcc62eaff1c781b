#include "MIPI_reader/node/bloom/bloom_suppression.h"

#include "MIPI_reader/node/bloom/bloom_suppression_scalar.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

// A type of this file alone lets the compiler treat the pass as this file's own code.
struct NodeTraces : bloom::PrintingTraces {};

// A row of six pixels does not fill sixteen lanes.
constexpr VectorForms<bloom::RowSumsForm> kForms{bloom::SumRowPlain, bloom::SumRowAvx2,
                                                 bloom::SumRowAvx2};

}  // namespace

void SuppressBlooming(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib,
                      bool filter_enable, const BloomTrace& trace, std::uint32_t possible_rows) {
  bloom::SuppressRow(frame, m_row, calib, filter_enable, possible_rows, NodeTraces{{trace, calib}},
                     kForms.Chosen());
}

}  // namespace kerul::lidar
