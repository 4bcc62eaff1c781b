#include "MIPI_reader/node/ground_rows_lanes.h"

namespace kerul::lidar::ground {

void FindGroundPlain(const RowRun& run, const GroundSettings& settings, GroundBits& bits) noexcept {
  FindGround<4>(run, settings, bits);
}

}  // namespace kerul::lidar::ground
