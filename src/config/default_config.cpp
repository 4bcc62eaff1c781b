#include "config/default_config.h"

#include "config/default_table_data.h"
#include "config/table_curves.h"

namespace kerul::lidar::default_config {
namespace {

void SetInput(DefaultConfig& config) {
  config.lidar_name = "QNDR_001";
  config.data_source = 1;
  config.module_type = 1;
  config.lidar_ip = "192.168.10.160";
  config.recv_ip = "";
  config.recv_port = 2368;
  config.pcap_path = "";
}

void SetEchoesAndOutput(DefaultConfig& config) {
  config.output_mode = 0;
  config.cogw_high_mode = 2;
  config.echo_num = 2;
  config.echo_output_code = 1;

  config.udp_output = false;
  config.udp_dest_ip = "127.0.0.1";
  config.udp_dest_port = 2369;
  config.shm_name = "kerul_lidar_udp_shm";
  config.shm_size = 100 * 1024 * 1024;
  config.output_spare_flag = true;
  config.output_spare_mode = 2;
}

void SetDebug(DefaultConfig::Debug& debug) {
  debug.if_debug = false;
  debug.packet_debug = false;
  debug.row = 44;
  debug.col = 174;
  debug.echo = 0;
  debug.spare_rows = 36;
  debug.spare_cols = 48;
}

void SetPipeline(DefaultConfig& config) {
  config.calib_enable = true;
  config.run_once = false;
  config.neighbor_check_enable = true;
}

void SetGround(DefaultConfig& config) {
  config.ground_enable = true;
  config.ground_vert_seed_enable = false;
  config.ground_plane_enable = false;
  config.ground_smooth_enable = false;
  config.ground_vert_span_ratio = 0.055F;
  config.ground_vert_span_max = 0.4F;
  config.ground_spare_a = 0.035F;
  config.ground_spare_b = 0.3F;
  config.ground_mean_diff_ratio = 0.04F;
  config.ground_mean_diff_max = 0.3F;
  config.ground_max_diff_ratio = 0.2F;
  config.ground_max_diff_max = 0.2F;
  config.ground_min_dist = ExpandRuns(default_table_data::kGroundMinDist);
  config.ground_plane_min_points = 100;
  config.ground_plane_keep_ratio = 0.8F;
  config.ground_plane_inlier_m = 0.05F;
  config.ground_plane_pull = 1.0F;
  config.ground_plane_pull_full_m = 0.3F;
  config.ground_plane_pull_zero_m = 0.6F;
  config.ground_plane_col_step = 2;
  config.ground_plane_max_points = 500;
}

void SetCalibrationSource(DefaultConfig& config) {
  config.para2_enable = true;
  config.rcx_port = 9347;
  config.iic_device = 0x40;
  config.tile_pixels = 36;
  config.tile_columns = 48;
  config.force_read_from_lidar = false;
  config.high_ref_blooming = true;
  config.blooming_filter_enable = true;
  config.env_bias = 15.0F;
}

void SetFrameExport(DefaultConfig& config) {
  config.export_dir = "";
  config.export_mode = "interp";
  config.frame_output_enable = false;
}

// The arrays at the end stay zero: bring-up fills them from the tables.
void SetBloomSuppression(BloomSuppressCalib& bloom) {
  bloom.enable = true;
  bloom.psf_coeff = 0.8F;
  bloom.dist_neighbor_enabled = true;
  bloom.pattern_enabled = true;
  bloom.dist_pattern_enabled = true;
  bloom.pattern_gain = -2.0F;
  bloom.pattern_offset = 2.4F;
  bloom.dist_gate_m = 0.2F;
  bloom.source_min_dist_m = 2.0F;
  bloom.edge_neighbor_threshold_m = 0.3F;
  bloom.min_n = 5;
  bloom.threshold = 235.0F;
}

// What is not named here is off or zero.
void SetHighReflCheck(HighReflCheck& check) {
  check.enable = true;

  check.rule_a_enable = true;
  check.rule_a_height = 255.0F;
  check.rule_a_range = {0.8F, 5.0F};
  check.rule_a_range_on = true;
  check.rule_a_gap = {4.0F, 8.0F};
  check.rule_a_gap_on = true;
  check.rule_a_height2 = {12.0F, 512.0F};
  check.rule_a_height2_on = true;
  check.rule_a_height2_rms = {8.0F, 512.0F};
  check.rule_a_rms_on = true;
  check.rule_a_rms = {0.6F, 1.0F};
  check.rule_a_rms_gate = true;

  check.rule_b_enable = true;
  check.rule_b_height = 253.0F;
  check.rule_b_range = {2.7F, 7.0F};
  check.rule_b_range_on = true;
  check.rule_b_double_tol = 0.6F;

  check.rule_c_enable = true;
  check.rule_c_height = 250.0F;
  check.rule_c_range = {7.0F, 50.0F};
  check.rule_c_range_on = true;

  check.rule_d_enable = true;
  check.rule_d_height = 170.0F;
  check.rule_d_gap = {1.0F, 2.5F};
  check.rule_d_gap_on = true;
  check.rule_d_height2 = {0.0F, 20.0F};
  check.rule_d_height2_on = true;

  check.near_refl_enable = false;
  check.near_refl_range = 1.0F;
}

// Must follow SetDebug, so that a changed traced pixel reaches the check as well.
void CopyTracedPixel(const DefaultConfig::Debug& debug, HighReflCheck& check) {
  check.trace_enable = debug.if_debug;
  check.trace_row = debug.row;
  check.trace_col = debug.col;
  check.trace_echo = debug.echo;
}

void SetShotNoise(DefaultConfig& config) {
  config.shot_noise_enable = true;
  config.shot_noise_dist_gate = 1.0F;
  config.shot_noise_spare_f0 = 20.0F;
  config.shot_noise_spare_i0 = 5;
  config.shot_noise_spare_i1 = 2;
  config.shot_noise_spare_i2 = 10;
  config.shot_noise_spare_i3 = 20;
  config.shot_noise_spare_f1 = 5.5F;
  config.shot_noise_spare_f2 = 12.0F;
}

void SetEchoComputation(DefaultConfig& config) {
  config.parser_spare_flag = false;
  config.clip_side_peaks = true;
  config.baseline_samples = 4;
  config.baseline_rise_gate = 550.0F;
  config.baseline_rise_limit = 10.0F;
}

DefaultConfig MakeConfig() {
  DefaultConfig config;
  SetInput(config);
  SetEchoesAndOutput(config);
  SetDebug(config.debug);
  SetPipeline(config);
  SetGround(config);
  SetCalibrationSource(config);
  SetFrameExport(config);
  SetBloomSuppression(config.bloom_suppress_calib);
  SetHighReflCheck(config.high_refl_check);
  CopyTracedPixel(config.debug, config.high_refl_check);
  SetShotNoise(config);
  SetEchoComputation(config);
  config.transform = TransformParam{};
  config.tables = MakeDefaultTables();
  return config;
}

}  // namespace

const DefaultConfig kConfig = MakeConfig();

}  // namespace kerul::lidar::default_config
