// First and last step of a finished miniflash row.
#pragma once

#include "MIPI_reader/node/rows/echo_ordering.h"
#include "reference/records.h"

namespace reference {

using kerul::lidar::EchoOutputPlan;

// The plan of the configuration's echo_num and echo_output_code.
EchoOutputPlan MakePlan(int echo_num, int echo_output_code);

// dist_proc = dist_raw, refl_proc = refl_raw on the six pixel rows of the miniflash row.
void Prime(LidarFrame& frame, int m_row);

// Moves the seven published fields between the two slots as the plan says.
void OrderRowEchoes(LidarFrame& frame, int m_row, const EchoOutputPlan& plan);

}  // namespace reference
