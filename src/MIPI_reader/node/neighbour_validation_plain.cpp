#include "MIPI_reader/node/neighbour_validation_lanes.h"

namespace kerul::lidar::neighbour {

void ValidateRunPlain(const RowRun& run) noexcept { ValidateRun<4>(run); }

}  // namespace kerul::lidar::neighbour
