#include "MIPI_reader/node/neighbour_validation_lanes.h"

namespace kerul::lidar::neighbour {

void ValidateRunAvx2(const RowRun& run) noexcept {
  ValidateRun<8>(run);
  LeaveWideVectors();
}

}  // namespace kerul::lidar::neighbour
