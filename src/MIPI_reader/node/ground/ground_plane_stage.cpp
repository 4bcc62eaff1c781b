#include "MIPI_reader/node/ground/ground_plane_stage.h"

#include "MIPI_reader/node/ground/ground_plane_stage_scalar.h"

namespace kerul::lidar {

void LabelGroundByPlane(FrameRows& rows, int m_row, int mrow_height, const GroundSettings& settings,
                        const AngleCalibGrid& grid) {
  const ground::NoPlaneTeller nobody;
  ground::LabelRowByPlane(rows, m_row, mrow_height, settings, grid, nobody);
}

}  // namespace kerul::lidar
