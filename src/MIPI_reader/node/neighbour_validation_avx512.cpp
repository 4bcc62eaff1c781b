#include "MIPI_reader/node/neighbour_validation_lanes.h"

namespace kerul::lidar::neighbour {

void ValidateRunAvx512(const RowRun& run) noexcept {
  ValidateRun<16>(run);
  LeaveWideVectors();
}

}  // namespace kerul::lidar::neighbour
