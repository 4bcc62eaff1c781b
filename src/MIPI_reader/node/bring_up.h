// What a start makes of a configuration. Functions over plain records that print nothing, so that
// tests, benchmarks and fuzzers work with what the node works with, without a node. LidarNode calls
// them in the order of its start lines.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "MIPI_reader/node/ground/ground_settings.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/node/point_calibration/packet_calibrator.h"
#include "MIPI_reader/parser/cogw_filter.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "calibration/para2_lidar_calib.h"
#include "config/bloom_suppress_calib.h"
#include "config/default_config.h"

namespace kerul::lidar {

GroundSettings MakeGroundSettings(const DefaultConfig& config);

// The bloom block of the configuration, with those of the tables in it that have the right size.
// The three spill tables are taken together or not at all. Without high_ref_blooming the built-in
// state, switched off.
BloomSuppressCalib MakeBloomCalib(const DefaultConfig& config);

// All that the parser takes from the configuration, except the width curves (MakeCogwFilter) and
// the angle grid, which can fail. baseline_samples below 1 count as 1, a negative
// baseline_rise_gate or baseline_rise_limit as 0.
void ConfigureParser(const DefaultConfig& config, LidarParserQDV11& parser);

// Null when one of the three curves is empty. Throws what CogwFilter throws.
std::shared_ptr<CogwFilter> MakeCogwFilter(const DefaultTables& tables);

// The tables that differ from sensor to sensor. Views: the tables must outlive the record.
struct SensorTables {
  std::span<const float> dist_curve;       // 512
  std::span<const float> dist_offset;      // 82944, tile order
  std::span<const float> dist_curve_high;  // 512 or none
  std::span<const float> retro_curve;      // 512
  std::span<const float> retro_scale;      // 82944, tile order
};

SensorTables TablesOf(const DefaultTables& tables) noexcept;
SensorTables TablesOf(const Para2LidarCalib& para2) noexcept;

// A table that a start may do without.
enum class OptionalTable { kAbsent, kWrongSize, kTaken };
OptionalTable StateOfCoghEfficiant(const DefaultTables& tables) noexcept;
OptionalTable StateOfRetroFilter(const DefaultTables& tables) noexcept;

// The objects of the per-packet steps. A null pointer switches a step off: `env` without both
// height tables, `high_threshold_map` without one of its tables, `high_refl_check` when its block
// is off. A table of the wrong size throws std::runtime_error as the objects document; one of the
// two optional tables is left out instead.
std::shared_ptr<EnvCalib> MakeEnvCalib(const DefaultConfig& config);
std::shared_ptr<HighThresholdMap> MakeHighThresholdMap(const DefaultTables& tables);
std::shared_ptr<HighReflCheck> MakeHighReflCheck(const DefaultConfig& config);
std::shared_ptr<DistCalib> MakeDistCalib(const SensorTables& sensor);
std::shared_ptr<RetroCalib> MakeRetroCalib(const DefaultConfig& config, const SensorTables& sensor);

struct CalibrationObjects {
  std::shared_ptr<EnvCalib> env;
  std::shared_ptr<DistCalib> dist;
  std::shared_ptr<HighThresholdMap> high_threshold_map;
  std::shared_ptr<HighReflCheck> high_refl_check;
  std::shared_ptr<RetroCalib> retro;
};

// All five, as a start with these settings has them: without calib_enable only `env` and
// `high_threshold_map`.
CalibrationObjects MakeCalibration(const DefaultConfig& config, const SensorTables& sensor);

// The objects must outlive the steps.
CalibrationSteps StepsOf(const CalibrationObjects& objects) noexcept;

}  // namespace kerul::lidar
