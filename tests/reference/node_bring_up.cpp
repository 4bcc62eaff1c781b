#include <stdexcept>

#include "reference/node.h"
#include "reference/para2.h"

namespace reference {

SensorCalibration CalibrationFromTables(const kerul::lidar::DefaultTables& tables) {
  SensorCalibration calibration;
  calibration.dist_curve = tables.dist_curve;
  calibration.dist_curve_high = tables.dist_curve_high;
  calibration.dist_offset = tables.dist_offset;
  calibration.retro_curve = tables.retro_curve;
  calibration.retro_scale = tables.retro_scale;
  if (!tables.angle_dat.empty()) {
    calibration.angle_grid = AngleGrid(tables.angle_dat.data(), tables.angle_dat.size());
  }
  return calibration;
}

SensorCalibration CalibrationFromPara2(const std::vector<std::uint8_t>& head,
                                       const std::vector<std::uint8_t>& main,
                                       const kerul::lidar::DefaultConfig& config) {
  const MainTables tables = UnpackMain(main, config.tile_pixels, config.tile_columns);
  SensorCalibration calibration;
  calibration.dist_curve = tables.dist_curve;
  calibration.dist_curve_high = tables.dist_curve_high;
  calibration.dist_offset = tables.dist_offset;
  calibration.retro_curve = tables.retro_curve;
  calibration.retro_scale = tables.retro_scale;
  calibration.angle_grid = AngleGrid(head.data() + 20, 78);
  return calibration;
}

namespace {

void Require(bool condition, const char* text) {
  if (!condition) throw std::runtime_error(text);
}

bool HasNan(const std::vector<float>& table) {
  for (float value : table) {
    if (value != value) return true;
  }
  return false;
}

Parser MakeParser(const kerul::lidar::DefaultConfig& config) {
  Parser parser;
  parser.cogw_high_mode = config.cogw_high_mode;
  parser.clip_side_peaks = config.clip_side_peaks;
  parser.baseline_samples = config.baseline_samples <= 0 ? 1 : config.baseline_samples;
  parser.baseline_rise_gate = config.baseline_rise_gate < 0.0F ? 0.0F : config.baseline_rise_gate;
  parser.baseline_rise_limit =
      config.baseline_rise_limit < 0.0F ? 0.0F : config.baseline_rise_limit;
  parser.keep_bins = config.frame_output_enable;
  return parser;
}

kerul::lidar::BloomSuppressCalib MakeBloomCalib(const kerul::lidar::DefaultConfig& config) {
  kerul::lidar::BloomSuppressCalib calib;  // the built-in state
  if (!config.high_ref_blooming) {
    calib.enable = false;
    return calib;
  }
  calib = config.bloom_suppress_calib;
  const kerul::lidar::DefaultTables& tables = config.tables;
  if (tables.psf_same_block.size() == 32 && tables.psf_adjacent_block.size() == 32 &&
      tables.psf_diagonal_block.size() == 32) {
    for (std::size_t i = 0; i < 32; ++i) {
      calib.psf_same_block[i] = tables.psf_same_block[i];
      calib.psf_adjacent_block[i] = tables.psf_adjacent_block[i];
      calib.psf_diagonal_block[i] = tables.psf_diagonal_block[i];
    }
  }
  if (tables.power_template.size() == 36) {
    for (std::size_t i = 0; i < 36; ++i) {
      calib.power_template[i / 6][i % 6] = tables.power_template[i];
    }
  }
  return calib;
}

}  // namespace

Node::Node(const kerul::lidar::DefaultConfig& config, const SensorCalibration& calibration)
    : config_(config) {
  parser_ = MakeParser(config_);
  TakeCalibration(calibration);
  TakeCommonTables();
  TakeGroundSettings();
  frame = MakeFrame(216, 288, config_.echo_num);
  upsampled_frame = MakeFrame(432, 576, config_.echo_num);
  echo_plan_ = MakePlan(config_.echo_num, config_.echo_output_code);
  ResetMrowProgress();
  cur_dist_map.assign(62208, 0.0F);
  prev_dist_map.assign(62208, 0.0F);
}

void Node::TakeCalibration(const SensorCalibration& calibration) {
  angle_grid_ = calibration.angle_grid;
  parser_.angle_grid = calibration.angle_grid;
  if (!config_.calib_enable) return;

  has_high_refl_check_ = config_.high_refl_check.enable;

  Require(calibration.dist_curve.size() == 512 && calibration.dist_offset.size() == 82944,
          "Invalid dist calib data");
  Require(calibration.dist_curve_high.empty() || calibration.dist_curve_high.size() == 512,
          "Invalid dist curve high vector");
  range_.curve = calibration.dist_curve;
  range_.offset = calibration.dist_offset;
  range_.curve_high = calibration.dist_curve_high;
  has_range_ = true;

  Require(calibration.retro_curve.size() == 512 && calibration.retro_scale.size() == 82944,
          "Invalid retro calib data");
  reflectivity_.retro_curve = calibration.retro_curve;
  reflectivity_.retro_scale = calibration.retro_scale;
  reflectivity_.high_refl_check = config_.high_refl_check;
  reflectivity_.cogh_efficiant = config_.tables.cogh_efficiant;
  reflectivity_.retro_filter = config_.tables.retro_filter;
  has_reflectivity_ = true;
}

void Node::TakeCommonTables() {
  const kerul::lidar::DefaultTables& tables = config_.tables;
  parser_.shot_times = tables.shot_times;

  if (!tables.env_cogh.empty() && !tables.env_cogh_high.empty()) {
    Require(tables.env_cogt.empty() || tables.env_cogt.size() == 4, "Invalid env cogt calib data");
    environment_.env_cogh = tables.env_cogh;
    environment_.env_cogh_high = tables.env_cogh_high;
    environment_.env_cogt = tables.env_cogt;
    environment_.bias = config_.env_bias;
    has_environment_ = true;
  }

  bloom_calib_ = MakeBloomCalib(config_);

  if (!tables.cogw_a.empty() && !tables.cogw_b.empty() && !tables.cogw_c.empty()) {
    Require(
        tables.cogw_a.size() == 641 && tables.cogw_b.size() == 641 && tables.cogw_c.size() == 641,
        "Invalid cogw filter data");
    Require(!HasNan(tables.cogw_a) && !HasNan(tables.cogw_b) && !HasNan(tables.cogw_c),
            "Invalid cogw filter data");
    parser_.width_curves = WidthCurves{tables.cogw_a, tables.cogw_b, tables.cogw_c};
  }

  if (!tables.high_threshold_cogh_in.empty() && !tables.high_threshold_cogh_out.empty()) {
    height_map_.cogh_in = tables.high_threshold_cogh_in;
    height_map_.cogh_out = tables.high_threshold_cogh_out;
    Require(height_map_.cogh_in.size() >= 2 &&
                height_map_.cogh_in.size() == height_map_.cogh_out.size(),
            "Invalid high-threshold cogh mapping data");
    has_height_map_ = true;
  }

  parser_.detect_threshold = tables.detect_threshold;
}

void Node::TakeGroundSettings() {
  GroundSettings& s = ground_settings_;
  s.vert_seed_enable = config_.ground_vert_seed_enable;
  s.plane_enable = config_.ground_plane_enable;
  s.smooth_enable = config_.ground_smooth_enable;
  s.vert_span_ratio = config_.ground_vert_span_ratio;
  s.vert_span_max = config_.ground_vert_span_max;
  s.mean_diff_ratio = config_.ground_mean_diff_ratio;
  s.mean_diff_max = config_.ground_mean_diff_max;
  s.max_diff_ratio = config_.ground_max_diff_ratio;
  s.max_diff_max = config_.ground_max_diff_max;
  s.min_dist = config_.ground_min_dist;
  s.plane_min_points = config_.ground_plane_min_points;
  s.plane_keep_ratio = config_.ground_plane_keep_ratio;
  s.plane_inlier_m = config_.ground_plane_inlier_m;
  s.plane_pull = config_.ground_plane_pull;
  s.plane_pull_full_m = config_.ground_plane_pull_full_m;
  s.plane_pull_zero_m = config_.ground_plane_pull_zero_m;
  s.plane_col_step = config_.ground_plane_col_step;
  s.plane_max_points = config_.ground_plane_max_points;
}

}  // namespace reference
