#include "MIPI_reader/node/bring_up.h"

#include <algorithm>
#include <iterator>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"

namespace kerul::lidar {
namespace {

std::vector<float> CopyOf(std::span<const float> table) { return {table.begin(), table.end()}; }

OptionalTable StateOf(const std::vector<float>& table, std::size_t entries) noexcept {
  if (table.empty()) return OptionalTable::kAbsent;
  return table.size() == entries ? OptionalTable::kTaken : OptionalTable::kWrongSize;
}

std::vector<float> IfTaken(const std::vector<float>& table, OptionalTable state) {
  return state == OptionalTable::kTaken ? table : std::vector<float>{};
}

// Tables that do not fit leave the block's own.
void TakeSpillTables(const DefaultTables& tables, BloomSuppressCalib& calib) {
  if (tables.psf_same_block.size() != std::size(calib.psf_same_block) ||
      tables.psf_adjacent_block.size() != std::size(calib.psf_adjacent_block) ||
      tables.psf_diagonal_block.size() != std::size(calib.psf_diagonal_block)) {
    return;
  }
  std::copy(tables.psf_same_block.begin(), tables.psf_same_block.end(), calib.psf_same_block);
  std::copy(tables.psf_adjacent_block.begin(), tables.psf_adjacent_block.end(),
            calib.psf_adjacent_block);
  std::copy(tables.psf_diagonal_block.begin(), tables.psf_diagonal_block.end(),
            calib.psf_diagonal_block);
}

void TakePowerTemplate(const DefaultTables& tables, BloomSuppressCalib& calib) {
  constexpr std::size_t kSide = kTemplateSide;
  if (tables.power_template.size() != kSide * kSide) return;
  for (std::size_t i = 0; i < kSide * kSide; ++i) {
    calib.power_template[i / kSide][i % kSide] = tables.power_template[i];
  }
}

}  // namespace

GroundSettings MakeGroundSettings(const DefaultConfig& config) {
  GroundSettings settings;
  settings.vert_seed_enable = config.ground_vert_seed_enable;
  settings.plane_enable = config.ground_plane_enable;
  settings.smooth_enable = config.ground_smooth_enable;
  settings.vert_span_ratio = config.ground_vert_span_ratio;
  settings.vert_span_max = config.ground_vert_span_max;
  settings.mean_diff_ratio = config.ground_mean_diff_ratio;
  settings.mean_diff_max = config.ground_mean_diff_max;
  settings.max_diff_ratio = config.ground_max_diff_ratio;
  settings.max_diff_max = config.ground_max_diff_max;
  settings.min_dist = config.ground_min_dist;
  settings.plane_min_points = config.ground_plane_min_points;
  settings.plane_keep_ratio = config.ground_plane_keep_ratio;
  settings.plane_inlier_m = config.ground_plane_inlier_m;
  settings.plane_pull = config.ground_plane_pull;
  settings.plane_pull_full_m = config.ground_plane_pull_full_m;
  settings.plane_pull_zero_m = config.ground_plane_pull_zero_m;
  settings.plane_col_step = config.ground_plane_col_step;
  settings.plane_max_points = config.ground_plane_max_points;
  return settings;
}

BloomSuppressCalib MakeBloomCalib(const DefaultConfig& config) {
  BloomSuppressCalib calib;
  if (!config.high_ref_blooming) {
    calib.enable = false;
    return calib;
  }
  calib = config.bloom_suppress_calib;
  TakeSpillTables(config.tables, calib);
  TakePowerTemplate(config.tables, calib);
  return calib;
}

void ConfigureParser(const DefaultConfig& config, LidarParserQDV11& parser) {
  const DefaultConfig::Debug& debug = config.debug;
  parser.echo_metrics_debug = debug.if_debug;
  parser.debug_row = debug.row;
  parser.debug_col = debug.col;
  parser.debug_echo = debug.echo;
  parser.packet_debug = debug.packet_debug;
  parser.cogw_high_mode = config.cogw_high_mode;
  parser.clip_side_peaks = config.clip_side_peaks;
  parser.baseline_samples = config.baseline_samples > 0 ? config.baseline_samples : 1;
  parser.baseline_rise_gate = config.baseline_rise_gate < 0.0F ? 0.0F : config.baseline_rise_gate;
  parser.baseline_rise_limit =
      config.baseline_rise_limit < 0.0F ? 0.0F : config.baseline_rise_limit;
  parser.keep_bins = config.frame_output_enable;
  parser.shot_times = config.tables.shot_times;
  parser.detect_threshold_bins = config.tables.detect_threshold;
}

std::shared_ptr<CogwFilter> MakeCogwFilter(const DefaultTables& tables) {
  if (tables.cogw_a.empty() || tables.cogw_b.empty() || tables.cogw_c.empty()) return nullptr;
  return std::make_shared<CogwFilter>(tables.cogw_a, tables.cogw_b, tables.cogw_c);
}

SensorTables TablesOf(const DefaultTables& tables) noexcept {
  return {.dist_curve = tables.dist_curve,
          .dist_offset = tables.dist_offset,
          .dist_curve_high = tables.dist_curve_high,
          .retro_curve = tables.retro_curve,
          .retro_scale = tables.retro_scale};
}

SensorTables TablesOf(const Para2LidarCalib& para2) noexcept {
  return {.dist_curve = para2.dist_curve,
          .dist_offset = para2.dist_offset,
          .dist_curve_high = para2.dist_curve_high,
          .retro_curve = para2.retro_curve,
          .retro_scale = para2.retro_scale};
}

OptionalTable StateOfCoghEfficiant(const DefaultTables& tables) noexcept {
  return StateOf(tables.cogh_efficiant, std::size_t{kEfficiantRows} * kEfficiantCols);
}

OptionalTable StateOfRetroFilter(const DefaultTables& tables) noexcept {
  return StateOf(tables.retro_filter, kFilterEntries);
}

std::shared_ptr<EnvCalib> MakeEnvCalib(const DefaultConfig& config) {
  const DefaultTables& tables = config.tables;
  if (tables.env_cogh.empty() || tables.env_cogh_high.empty()) return nullptr;
  return std::make_shared<EnvCalib>(tables.env_cogh, tables.env_cogh_high, tables.env_cogt,
                                    config.env_bias);
}

std::shared_ptr<HighThresholdMap> MakeHighThresholdMap(const DefaultTables& tables) {
  if (tables.high_threshold_cogh_in.empty() || tables.high_threshold_cogh_out.empty()) {
    return nullptr;
  }
  return std::make_shared<HighThresholdMap>(tables.high_threshold_cogh_in,
                                            tables.high_threshold_cogh_out);
}

std::shared_ptr<HighReflCheck> MakeHighReflCheck(const DefaultConfig& config) {
  if (!config.high_refl_check.enable) return nullptr;
  return std::make_shared<HighReflCheck>(config.high_refl_check);
}

std::shared_ptr<DistCalib> MakeDistCalib(const SensorTables& sensor) {
  return std::make_shared<DistCalib>(CopyOf(sensor.dist_curve), CopyOf(sensor.dist_offset),
                                     CopyOf(sensor.dist_curve_high));
}

std::shared_ptr<RetroCalib> MakeRetroCalib(const DefaultConfig& config,
                                           const SensorTables& sensor) {
  const DefaultTables& tables = config.tables;
  return std::make_shared<RetroCalib>(CopyOf(sensor.retro_curve), CopyOf(sensor.retro_scale),
                                      config.high_refl_check,
                                      IfTaken(tables.cogh_efficiant, StateOfCoghEfficiant(tables)),
                                      IfTaken(tables.retro_filter, StateOfRetroFilter(tables)));
}

CalibrationObjects MakeCalibration(const DefaultConfig& config, const SensorTables& sensor) {
  CalibrationObjects objects;
  if (config.calib_enable) {
    objects.high_refl_check = MakeHighReflCheck(config);
    objects.dist = MakeDistCalib(sensor);
    objects.retro = MakeRetroCalib(config, sensor);
  }
  objects.env = MakeEnvCalib(config);
  objects.high_threshold_map = MakeHighThresholdMap(config.tables);
  return objects;
}

CalibrationSteps StepsOf(const CalibrationObjects& objects) noexcept {
  return {.env = objects.env.get(),
          .dist = objects.dist.get(),
          .high_threshold_map = objects.high_threshold_map.get(),
          .high_refl_check = objects.high_refl_check.get(),
          .retro = objects.retro.get()};
}

}  // namespace kerul::lidar
