// Orders the two echoes of each pixel for the output.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// Which echoes a block's packets carry. Selectors: 1 the preferred echo, 2 the other echo, 3 always
// slot 0, 4 always slot 1; any other value counts as 1.
struct EchoOutputPlan {
  std::int32_t count = 1;   // packets per block, 1 or 2
  std::int32_t first = 1;   // selector of the first packet's echo
  std::int32_t second = 1;  // selector of the second packet's echo
};

// The plan that `echo_num` and the decimal digits of `echo_output_code` ask for: one digit 1..4
// for one packet per block, two for two. Any other code, or a single echo, gives the default plan.
EchoOutputPlan MakeEchoOutputPlan(int echo_num, int echo_output_code) noexcept;

// Both operations work in place on the pixel rows first_row .. first_row + row_count - 1, as far
// as they exist, allocate nothing and cannot fail.

// dist_proc = dist_raw and refl_proc = refl_raw for the echo slots in use.
void PrimeProcessedFields(FrameRows& rows, int first_row, int row_count) noexcept;

// Moves seven fields (dist_proc, refl_proc, cogh, cogw, cogw_high, peak, noise) between the slots
// as the plan says; all other fields, flags too, stay in their slots. The preferred echo is the
// one without highReflBlooming, then the nearer; a second echo with a peak of 15.0 level units or
// less is not looked at while ranking. For frames with two echo slots in use only.
void OrderEchoes(FrameRows& rows, int first_row, int row_count,
                 const EchoOutputPlan& plan) noexcept;

}  // namespace kerul::lidar
