#include "config/default_tables.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "config/default_table_data.h"
#include "config/table_curves.h"

namespace kerul::lidar {
namespace {

namespace data = default_table_data;

std::vector<float> HighThresholdHeights() {
  std::vector<float> heights;
  for (int height = 0; height <= data::kHighThresholdLastHeight; ++height) {
    if (std::ranges::count(data::kHighThresholdMissingHeights, height) > 0) continue;
    heights.push_back(static_cast<float>(height));
  }
  return heights;
}

// Spread over positions, so that the two missing heights leave no double step.
std::vector<float> HighThresholdOutput() {
  std::vector<CurvePoint> points;
  for (CurvePoint point : data::kHighThresholdPairs) {
    const auto is_below = [&point](int missing) { return missing < point.index; };
    const auto missing_below = std::ranges::count_if(data::kHighThresholdMissingHeights, is_below);
    point.index -= static_cast<int>(missing_below);
    points.push_back(point);
  }
  return SpreadWholeSteps(points);
}

std::vector<std::uint16_t> DetectThreshold() {
  const std::vector<float> curve = FillCurve(data::kDetectThreshold, data::kDetectThresholdEntries);
  std::vector<std::uint16_t> levels(curve.size());
  std::ranges::transform(curve, levels.begin(), [](float level) {
    return static_cast<std::uint16_t>(std::lround(level));
  });
  return levels;
}

// One curve over range for each pixel row, laid side by side.
std::vector<float> CoghEfficiant() {
  std::vector<float> table(std::size_t{data::kEfficiantRows} * data::kEfficiantCols);
  for (std::size_t col = 0; col < data::kEfficiantCols; ++col) {
    std::vector<CurvePoint> points;
    points.reserve(data::kCoghEfficiant.size());
    for (const auto& known : data::kCoghEfficiant) points.push_back({known.row, known.values[col]});
    const std::vector<float> curve = FillCurve(points, data::kEfficiantRows);
    for (std::size_t row = 0; row < curve.size(); ++row) {
      table[row * data::kEfficiantCols + col] = curve[row];
    }
  }
  return table;
}

}  // namespace

DefaultTables MakeDefaultTables() {
  DefaultTables tables;
  tables.shot_times = ExpandRuns(data::kShotTimes);
  tables.high_threshold_cogh_in = HighThresholdHeights();
  tables.high_threshold_cogh_out = HighThresholdOutput();
  tables.env_cogh = FillCurve(data::kEnvCogh, data::kEnvEntries);
  tables.env_cogh_high = FillCurve(data::kEnvCoghHigh, data::kEnvEntries);
  tables.detect_threshold = DetectThreshold();
  tables.cogh_efficiant = CoghEfficiant();
  tables.cogw_a = ExpandRuns(data::kCogwA);
  tables.cogw_b = FillCurve(data::kCogwB, data::kCogwEntries);
  tables.cogw_c = FillCurve(data::kCogwC, data::kCogwEntries);
  tables.psf_same_block = ExpandRuns(data::kPsfSameBlock);
  tables.psf_adjacent_block = ExpandRuns(data::kPsfAdjacentBlock);
  tables.psf_diagonal_block = ExpandRuns(data::kPsfDiagonalBlock);
  tables.power_template.assign(data::kPowerTemplate.begin(), data::kPowerTemplate.end());
  return tables;
}

}  // namespace kerul::lidar
