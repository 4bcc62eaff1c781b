#include "MIPI_reader/node/packet_calibration_lanes.h"

namespace kerul::lidar {

void CalibratePointsAvx512(const CalibrationTables& tables, LidarPoint* points, int count,
                           int echo_count) noexcept {
  CalibrationKernel<16>::Run(tables, points, count, echo_count);
  LeaveWideVectors();
}

}  // namespace kerul::lidar
