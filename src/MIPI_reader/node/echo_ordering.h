// Orders the two echoes of each pixel for the output.
#pragma once

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Which echoes a block's packets carry. Selectors: 1 the preferred echo, 2 the other echo, 3 slot
// 0 as it stands, 4 slot 1 as it stands.
struct EchoOutputPlan {
  std::int32_t count = 1;   // packets per block, 1 or 2
  std::int32_t first = 1;   // selector of the first packet's echo
  std::int32_t second = 1;  // selector of the second packet's echo
};

// The plan that `echo_num` and the decimal digits of `echo_output_code` ask for.
EchoOutputPlan MakeEchoOutputPlan(int echo_num, int echo_output_code) noexcept;

// dist_proc = dist_raw and refl_proc = refl_raw for the echo slots in use.
void PrimeProcessedFields(FrameRows& rows, int first_row, int row_count) noexcept;

// Moves seven fields (dist_proc, refl_proc, cogh, cogw, cogw_high, peak, noise) between the slots
// as the plan says; all other fields, flags too, stay in their slots.
void OrderEchoes(FrameRows& rows, int first_row, int row_count,
                 const EchoOutputPlan& plan) noexcept;

}  // namespace kerul::lidar
