// All settings of the node, compiled in as one constant record. Changing a setting means changing
// MakeConfig in default_config.cpp and building again; there is no configuration file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/bloom_suppress_calib.h"
#include "config/default_tables.h"
#include "config/high_refl_check.h"
#include "config/transform_param.h"

namespace kerul::lidar {

// Plain record of value members. The member initialisers here are empty states only: the defaults
// of the product are those that MakeConfig fills in. Ranges are metres. Fields called spare have
// no reader.
struct DefaultConfig {
  // Identity and input.
  std::string lidar_name;         // node name without its "_node"
  std::uint32_t data_source = 0;  // 1 UDP socket, 2 capture file
  std::uint32_t module_type = 0;  // only 1 is supported
  std::string lidar_ip;           // the sensor's IPv4 address, for the command channel
  std::string recv_ip;            // multicast group of the input, empty for none
  std::uint16_t recv_port = 0;    // UDP input port
  std::string recv_sender_ip;     // IPv4 address whose datagrams alone are taken, empty for any
  std::string pcap_path;          // capture file for data_source 2

  // Echoes.
  std::uint16_t output_mode = 0;       // what the payload bytes of an output point carry
  std::uint16_t cogw_high_mode = 0;    // 1 always compute cogw_high, 2 only above the gate curve
  std::uint16_t echo_num = 0;          // echo slots per point, 1 or 2
  std::uint16_t echo_output_code = 0;  // one digit 1..4, or two for two packets per block

  // Output.
  bool udp_output = false;  // true: UDP to udp_dest_ip:udp_dest_port, false: shared-memory ring
  std::string udp_dest_ip;
  std::uint16_t udp_dest_port = 0;
  std::string shm_name;
  std::uint32_t shm_size = 0;  // bytes
  bool output_spare_flag = false;
  std::uint16_t output_spare_mode = 0;

  struct Debug {
    bool if_debug = false;      // lines about the traced pixel
    bool packet_debug = false;  // a line for each packet
    std::int32_t row = 0;       // the traced pixel and echo slot
    std::int32_t col = 0;
    std::int32_t echo = 0;
    std::uint16_t spare_rows = 0;
    std::uint16_t spare_cols = 0;
  } debug;

  // Pipeline switches and ground.
  bool calib_enable = false;  // master switch of calibration and row passes
  bool run_once = false;      // stop after the first frame boundary
  bool neighbor_check_enable = false;
  bool ground_enable = false;
  bool ground_vert_seed_enable = false;
  bool ground_plane_enable = false;
  bool ground_smooth_enable = false;
  float ground_vert_span_ratio = 0.0F;
  float ground_vert_span_max = 0.0F;
  float ground_spare_a = 0.0F;
  float ground_spare_b = 0.0F;
  float ground_mean_diff_ratio = 0.0F;
  float ground_mean_diff_max = 0.0F;
  float ground_max_diff_ratio = 0.0F;
  float ground_max_diff_max = 0.0F;
  std::vector<float> ground_min_dist;  // smallest ground distance by miniflash row
  std::int32_t ground_plane_min_points = 0;
  float ground_plane_keep_ratio = 0.0F;
  float ground_plane_inlier_m = 0.0F;
  float ground_plane_pull = 0.0F;
  float ground_plane_pull_full_m = 0.0F;
  float ground_plane_pull_zero_m = 0.0F;
  std::int32_t ground_plane_col_step = 0;
  std::int32_t ground_plane_max_points = 0;

  // Calibration source and bloom switches.
  bool para2_enable = false;  // true: the sensor's own calibration, false: `tables` alone
  std::int32_t rcx_port = 0;
  std::uint32_t iic_device = 0;  // low byte used
  std::int32_t tile_pixels = 0;
  std::int32_t tile_columns = 0;
  bool force_read_from_lidar = false;
  bool high_ref_blooming = false;
  bool blooming_filter_enable = false;
  float env_bias = 0.0F;

  // Frame export.
  std::string export_dir;   // empty: no export
  std::string export_mode;  // "raw", "processed", anything else the doubled frame
  bool frame_output_enable = false;

  BloomSuppressCalib bloom_suppress_calib;
  bool parser_spare_flag = false;
  HighReflCheck high_refl_check;

  // Shot noise.
  bool shot_noise_enable = false;
  float shot_noise_dist_gate = 0.0F;
  float shot_noise_spare_f0 = 0.0F;
  std::int32_t shot_noise_spare_i0 = 0;
  std::int32_t shot_noise_spare_i1 = 0;
  std::int32_t shot_noise_spare_i2 = 0;
  std::int32_t shot_noise_spare_i3 = 0;
  float shot_noise_spare_f1 = 0.0F;
  float shot_noise_spare_f2 = 0.0F;

  // Echo computation.
  bool clip_side_peaks = false;
  std::int32_t baseline_samples = 0;  // the parser takes at least 1
  float baseline_rise_gate = 0.0F;    // the parser takes at least 0
  float baseline_rise_limit = 0.0F;   // the parser takes at least 0

  TransformParam transform;  // mounting
  DefaultTables tables;

  bool shm_takeover = false;  // start although another process still writes the ring of shm_name
};

namespace default_config {

// The one instance that exists at start, built during static initialisation, never written after.
extern const DefaultConfig kConfig;

}  // namespace default_config
}  // namespace kerul::lidar
