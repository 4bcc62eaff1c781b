// The kernels of calibration and row passes for AVX2.
#include "MIPI_reader/node/bloom/bloom_row_sums_lanes.h"
#include "MIPI_reader/node/ground/ground_rows_lanes.h"
#include "MIPI_reader/node/neighbours/neighbour_validation_lanes.h"
#include "MIPI_reader/node/point_calibration/packet_calibration_lanes.h"

namespace kerul::lidar {

void CalibratePlanesAvx2(const CalibrationTables& tables, PacketPlanes& planes) noexcept {
  CalibrationKernel<8>::Run(tables, planes);
  LeaveWideVectors();
}

void bloom::SumRowAvx2(const RowJob& job, RowSums& sums) noexcept {
  RowSumsKernel<8>::Sum(job, sums);
  LeaveWideVectors();
}

void ground::FindGroundAvx2(const RowRun& run, const GroundSettings& settings,
                            GroundBits& bits) noexcept {
  FindGround<8>(run, settings, bits);
  LeaveWideVectors();
}

void neighbour::ValidateRunAvx2(const RowRun& run) noexcept {
  ValidateRun<8>(run);
  LeaveWideVectors();
}

}  // namespace kerul::lidar
