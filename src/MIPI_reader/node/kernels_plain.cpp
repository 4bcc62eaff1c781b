// The kernels of calibration and row passes for every x86-64 processor.
#include "MIPI_reader/node/bloom/bloom_row_sums_lanes.h"
#include "MIPI_reader/node/ground/ground_rows_lanes.h"
#include "MIPI_reader/node/neighbours/neighbour_validation_lanes.h"
#include "MIPI_reader/node/point_calibration/packet_calibration_lanes.h"

namespace kerul::lidar {

void CalibratePlanesPlain(const CalibrationTables& tables, PacketPlanes& planes) noexcept {
  CalibrationKernel<4>::Run(tables, planes);
}

void bloom::SumRowPlain(const RowJob& job, RowSums& sums) noexcept {
  RowSumsKernel<4>::Sum(job, sums);
}

void ground::FindGroundPlain(const RowRun& run, const GroundSettings& settings,
                             GroundBits& bits) noexcept {
  FindGround<4>(run, settings, bits);
}

void neighbour::ValidateRunPlain(const RowRun& run) noexcept { ValidateRun<4>(run); }

}  // namespace kerul::lidar
