#include "MIPI_reader/node/ground_rows_lanes.h"

namespace kerul::lidar::ground {

void FindGroundAvx512(const RowRun& run, const GroundSettings& settings,
                      GroundBits& bits) noexcept {
  FindGround<16>(run, settings, bits);
  LeaveWideVectors();
}

}  // namespace kerul::lidar::ground
