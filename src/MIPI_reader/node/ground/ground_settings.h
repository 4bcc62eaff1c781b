// The settings of the ground pass.
#pragma once

#include <vector>

namespace kerul::lidar {

// Fields are named after the settings that fill them. Ranges in metres.
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

}  // namespace kerul::lidar
