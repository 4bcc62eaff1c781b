#include "MIPI_reader/node/ground/ground_labelling.h"

#include "MIPI_reader/node/ground/ground_plane_stage.h"
#include "MIPI_reader/node/ground/ground_rows.h"

namespace kerul::lidar {

void LabelGround(LidarFrame& frame, int m_row, int mrow_height, const GroundSettings& settings,
                 const AngleCalibGrid& grid) {
  LabelGroundByRise(frame.points, m_row, mrow_height, settings, grid);
  if (settings.plane_enable && grid.valid) {
    LabelGroundByPlane(frame.points, m_row, mrow_height, settings, grid);
  }
}

}  // namespace kerul::lidar
