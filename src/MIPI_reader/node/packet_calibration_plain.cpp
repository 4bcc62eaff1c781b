#include "MIPI_reader/node/packet_calibration_lanes.h"

namespace kerul::lidar {

void CalibratePointsPlain(const CalibrationTables& tables, LidarPoint* points, int count,
                          int echo_count) noexcept {
  CalibrationKernel<4>::Run(tables, points, count, echo_count);
}

}  // namespace kerul::lidar
