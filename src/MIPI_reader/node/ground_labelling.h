// Labels ground echoes of a miniflash row and draws them to a fitted plane.
#pragma once

#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "calibration/angle_calib.h"

namespace kerul::lidar {

// Fields carry the names of the settings they are filled from. Ranges in metres.
struct GroundSettings {
  bool vert_seed_enable = false;
  bool plane_enable = false;
  bool smooth_enable = false;
  float vert_span_ratio = 0.0F;
  float vert_span_max = 0.0F;
  float mean_diff_ratio = 0.0F;
  float mean_diff_max = 0.0F;
  float max_diff_ratio = 0.0F;
  float max_diff_max = 0.0F;
  std::vector<float> min_dist;  // smallest ground distance by miniflash row
  int plane_min_points = 0;
  float plane_keep_ratio = 0.0F;
  float plane_inlier_m = 0.0F;
  float plane_pull = 0.0F;
  float plane_pull_full_m = 0.0F;
  float plane_pull_zero_m = 0.0F;
  int plane_col_step = 0;
  int plane_max_points = 0;
};

// Works in place on echo 0 of miniflash row `m_row`, which is `mrow_height` pixel rows high; reads
// two pixel rows around it. The first stage always runs, the plane stage when plane_enable and the
// grid is valid.
void LabelGround(LidarFrame& frame, int m_row, int mrow_height, const GroundSettings& settings,
                 const AngleCalibGrid& grid);

// Factor 0.4..1 by which a ground echo's reflectivity is too low for its angle of incidence; 1.0
// when it cannot tell. `distances`: `count` ranges (at most 5) down column `col`, from row
// `row` + first_offset on.
float EstimateGroundReflScale(const float* distances, int count, int row, int col, int first_offset,
                              const AngleCalibGrid& grid) noexcept;

}  // namespace kerul::lidar
