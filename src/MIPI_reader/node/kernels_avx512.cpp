// The kernels of calibration and row passes for AVX-512.
#include "MIPI_reader/node/ground/ground_rows_lanes.h"
#include "MIPI_reader/node/neighbours/neighbour_validation_lanes.h"
#include "MIPI_reader/node/point_calibration/packet_calibration_lanes.h"

namespace kerul::lidar {

void CalibratePlanesAvx512(const CalibrationTables& tables, PacketPlanes& planes) noexcept {
  CalibrationKernel<16>::Run(tables, planes);
  LeaveWideVectors();
}

void ground::FindGroundAvx512(const RowRun& run, const GroundSettings& settings,
                              GroundBits& bits) noexcept {
  FindGround<16>(run, settings, bits);
  LeaveWideVectors();
}

void neighbour::ValidateRunAvx512(const RowRun& run) noexcept {
  ValidateRun<16>(run);
  LeaveWideVectors();
}

}  // namespace kerul::lidar
