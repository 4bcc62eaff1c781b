// What every packet's points go through before they reach the frame, in this order.
#pragma once

#include <vector>

#include "config/high_refl_check.h"
#include "reference/records.h"

namespace reference {

// Compensation for background light; the two height tables by noise.
struct EnvironmentTables {
  std::vector<float> env_cogh;
  std::vector<float> env_cogh_high;
  std::vector<float> env_cogt;  // 4 entries, or none: no range compensation
  float bias = 0.0F;
};

struct RangeTables {
  std::vector<float> curve;       // 512
  std::vector<float> offset;      // 82944, tile order
  std::vector<float> curve_high;  // 512 or none
};

struct HeightMapTables {
  std::vector<float> cogh_in;  // at least 2, ascending
  std::vector<float> cogh_out;
};

struct ReflectivityTables {
  std::vector<float> retro_curve;  // 512
  std::vector<float> retro_scale;  // 82944, tile order
  kerul::lidar::HighReflCheck high_refl_check;
  std::vector<float> cogh_efficiant;  // 600, any other length: not valid
  std::vector<float> retro_filter;    // 31, any other length: not valid
};

void CompensateForEnvironment(const EnvironmentTables& tables, std::vector<LidarPoint>& points);
void CorrectRange(const RangeTables& tables, std::vector<LidarPoint>& points);
void MapHeights(const HeightMapTables& tables, std::vector<LidarPoint>& points);
// The caller checks `check.enable`.
void CheckHighRefl(const kerul::lidar::HighReflCheck& check, std::vector<LidarPoint>& points);
void CalibrateReflectivity(const ReflectivityTables& tables, std::vector<LidarPoint>& points);

}  // namespace reference
