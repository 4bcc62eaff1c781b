#include "MIPI_reader/node/packet_calibration_lanes.h"

namespace kerul::lidar {

void CalibratePointsAvx2(const CalibrationTables& tables, LidarPoint* points, int count,
                         int echo_count) noexcept {
  CalibrationKernel<8>::Run(tables, points, count, echo_count);
  LeaveWideVectors();
}

}  // namespace kerul::lidar
