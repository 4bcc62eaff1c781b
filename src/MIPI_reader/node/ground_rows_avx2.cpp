#include "MIPI_reader/node/ground_rows_lanes.h"

namespace kerul::lidar::ground {

void FindGroundAvx2(const RowRun& run, const GroundSettings& settings, GroundBits& bits) noexcept {
  FindGround<8>(run, settings, bits);
  LeaveWideVectors();
}

}  // namespace kerul::lidar::ground
