#include "config/default_config.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>
#include <vector>

namespace kerul::lidar {
namespace {

const DefaultConfig& Config() { return default_config::kConfig; }

void ExpectBand(const HighReflBand& band, float lo, float hi) {
  EXPECT_EQ(band.lo, lo);
  EXPECT_EQ(band.hi, hi);
}

void ExpectUnused(const HighReflBand& band, bool is_on) {
  ExpectBand(band, 0.0F, 0.0F);
  EXPECT_FALSE(is_on);
}

TEST(DefaultConfig, IdentityAndInput) {
  EXPECT_EQ(Config().lidar_name, "QNDR_001");
  EXPECT_EQ(Config().data_source, 1U);
  EXPECT_EQ(Config().module_type, 1U);
  EXPECT_EQ(Config().recv_ip, "");
  EXPECT_EQ(Config().recv_sender_ip, "");
  EXPECT_EQ(Config().recv_port, 2368);
  EXPECT_EQ(Config().pcap_path, "");
}

TEST(DefaultConfig, TheSensorHasAPrivateAddress) {
  in_addr address{};
  ASSERT_EQ(inet_pton(AF_INET, Config().lidar_ip.c_str(), &address), 1);
  EXPECT_EQ(ntohl(address.s_addr) >> 16, 0xC0A8U) << "192.168.0.0/16";
}

TEST(DefaultConfig, Echoes) {
  EXPECT_EQ(Config().output_mode, 0);
  EXPECT_EQ(Config().cogw_high_mode, 2);
  EXPECT_EQ(Config().echo_num, 2);
  EXPECT_EQ(Config().echo_output_code, 1);
}

TEST(DefaultConfig, Output) {
  EXPECT_FALSE(Config().udp_output);
  EXPECT_EQ(Config().udp_dest_ip, "127.0.0.1");
  EXPECT_EQ(Config().udp_dest_port, 2369);
  EXPECT_EQ(Config().shm_name, "kerul_lidar_udp_shm");
  EXPECT_EQ(Config().shm_size, 104857600U);
  EXPECT_TRUE(Config().output_spare_flag);
  EXPECT_EQ(Config().output_spare_mode, 2);
}

TEST(DefaultConfig, Debug) {
  EXPECT_FALSE(Config().debug.if_debug);
  EXPECT_FALSE(Config().debug.packet_debug);
  EXPECT_EQ(Config().debug.row, 44);
  EXPECT_EQ(Config().debug.col, 174);
  EXPECT_EQ(Config().debug.echo, 0);
  EXPECT_EQ(Config().debug.spare_rows, 36);
  EXPECT_EQ(Config().debug.spare_cols, 48);
}

TEST(DefaultConfig, PipelineSwitches) {
  EXPECT_TRUE(Config().calib_enable);
  EXPECT_FALSE(Config().run_once);
  EXPECT_TRUE(Config().neighbor_check_enable);
  EXPECT_TRUE(Config().ground_enable);
  EXPECT_FALSE(Config().ground_vert_seed_enable);
  EXPECT_FALSE(Config().ground_plane_enable);
  EXPECT_FALSE(Config().ground_smooth_enable);
}

TEST(DefaultConfig, Ground) {
  EXPECT_EQ(Config().ground_vert_span_ratio, 0.055F);
  EXPECT_EQ(Config().ground_vert_span_max, 0.4F);
  EXPECT_EQ(Config().ground_spare_a, 0.035F);
  EXPECT_EQ(Config().ground_spare_b, 0.3F);
  EXPECT_EQ(Config().ground_mean_diff_ratio, 0.04F);
  EXPECT_EQ(Config().ground_mean_diff_max, 0.3F);
  EXPECT_EQ(Config().ground_max_diff_ratio, 0.2F);
  EXPECT_EQ(Config().ground_max_diff_max, 0.2F);
  EXPECT_EQ(Config().ground_plane_min_points, 100);
  EXPECT_EQ(Config().ground_plane_keep_ratio, 0.8F);
  EXPECT_EQ(Config().ground_plane_inlier_m, 0.05F);
  EXPECT_EQ(Config().ground_plane_pull, 1.0F);
  EXPECT_EQ(Config().ground_plane_pull_full_m, 0.3F);
  EXPECT_EQ(Config().ground_plane_pull_zero_m, 0.6F);
  EXPECT_EQ(Config().ground_plane_col_step, 2);
  EXPECT_EQ(Config().ground_plane_max_points, 500);
}

TEST(DefaultConfig, GroundDistancesByMiniflashRow) {
  ASSERT_EQ(Config().ground_min_dist.size(), 36U);
  for (std::size_t row = 0; row < 36; ++row) {
    const float expected = row < 6 ? 0.4F : row < 12 ? 1.0F : row < 18 ? 3.0F : 99.0F;
    EXPECT_EQ(Config().ground_min_dist[row], expected) << row;
  }
}

TEST(DefaultConfig, CalibrationSourceAndBloomSwitches) {
  EXPECT_TRUE(Config().para2_enable);
  EXPECT_EQ(Config().rcx_port, 9347);
  EXPECT_EQ(Config().iic_device, 64U);
  EXPECT_EQ(Config().tile_pixels, 36);
  EXPECT_EQ(Config().tile_columns, 48);
  EXPECT_FALSE(Config().force_read_from_lidar);
  EXPECT_TRUE(Config().high_ref_blooming);
  EXPECT_TRUE(Config().blooming_filter_enable);
  EXPECT_EQ(Config().env_bias, 15.0F);
}

TEST(DefaultConfig, FrameExportIsOff) {
  EXPECT_EQ(Config().export_dir, "");
  EXPECT_EQ(Config().export_mode, "interp");
  EXPECT_FALSE(Config().frame_output_enable);
}

TEST(DefaultConfig, BloomSuppression) {
  const BloomSuppressCalib& bloom = Config().bloom_suppress_calib;
  EXPECT_TRUE(bloom.enable);
  EXPECT_EQ(bloom.psf_coeff, 0.8F);
  EXPECT_TRUE(bloom.dist_neighbor_enabled);
  EXPECT_TRUE(bloom.pattern_enabled);
  EXPECT_TRUE(bloom.dist_pattern_enabled);
  EXPECT_EQ(bloom.pattern_gain, -2.0F);
  EXPECT_EQ(bloom.pattern_offset, 2.4F);
  EXPECT_EQ(bloom.dist_gate_m, 0.2F);
  EXPECT_EQ(bloom.source_min_dist_m, 2.0F);
  EXPECT_EQ(bloom.edge_neighbor_threshold_m, 0.3F);
  EXPECT_EQ(bloom.min_n, 5);
  EXPECT_EQ(bloom.threshold, 235.0F);
}

TEST(DefaultConfig, TheBloomBlocksOwnArraysStayZero) {
  const BloomSuppressCalib& bloom = Config().bloom_suppress_calib;
  for (int i = 0; i < kPsfEntries; ++i) {
    EXPECT_EQ(bloom.psf_same_block[i], 0.0F);
    EXPECT_EQ(bloom.psf_adjacent_block[i], 0.0F);
    EXPECT_EQ(bloom.psf_diagonal_block[i], 0.0F);
  }
  for (int i = 0; i < kTemplateSide * kTemplateSide; ++i) {
    EXPECT_EQ(bloom.power_template[i / kTemplateSide][i % kTemplateSide], 0.0F);
  }
}

TEST(DefaultConfig, ABloomBlockWithoutSettingsIsInItsBuiltInState) {
  const BloomSuppressCalib bloom;
  EXPECT_TRUE(bloom.enable);
  EXPECT_EQ(bloom.psf_coeff, 1.0F);
  EXPECT_TRUE(bloom.dist_neighbor_enabled);
  EXPECT_FALSE(bloom.pattern_enabled);
  EXPECT_FALSE(bloom.dist_pattern_enabled);
  EXPECT_EQ(bloom.pattern_gain, 0.0F);
  EXPECT_EQ(bloom.min_n, 0);
  EXPECT_EQ(bloom.threshold, 0.0F);
}

TEST(DefaultConfig, HighReflRuleA) {
  const HighReflCheck& check = Config().high_refl_check;
  EXPECT_TRUE(check.enable);
  EXPECT_TRUE(check.rule_a_enable);
  EXPECT_EQ(check.rule_a_height, 255.0F);
  ExpectBand(check.rule_a_range, 0.8F, 5.0F);
  EXPECT_TRUE(check.rule_a_range_on);
  ExpectBand(check.rule_a_gap, 4.0F, 8.0F);
  EXPECT_TRUE(check.rule_a_gap_on);
  ExpectUnused(check.rule_a_height2_low, check.rule_a_height2_low_on);
  ExpectBand(check.rule_a_height2, 12.0F, 512.0F);
  EXPECT_TRUE(check.rule_a_height2_on);
  ExpectBand(check.rule_a_height2_rms, 8.0F, 512.0F);
  EXPECT_TRUE(check.rule_a_rms_on);
  ExpectBand(check.rule_a_rms, 0.6F, 1.0F);
  EXPECT_TRUE(check.rule_a_rms_gate);
  EXPECT_EQ(check.rule_a_spare, 0.0F);
}

TEST(DefaultConfig, HighReflRuleB) {
  const HighReflCheck& check = Config().high_refl_check;
  EXPECT_TRUE(check.rule_b_enable);
  EXPECT_EQ(check.rule_b_height, 253.0F);
  ExpectBand(check.rule_b_range, 2.7F, 7.0F);
  EXPECT_TRUE(check.rule_b_range_on);
  ExpectUnused(check.rule_b_spare_1, check.rule_b_spare_1_on);
  ExpectUnused(check.rule_b_spare_2, check.rule_b_spare_2_on);
  ExpectUnused(check.rule_b_spare_3, check.rule_b_spare_3_on);
  ExpectUnused(check.rule_b_spare_4, check.rule_b_spare_4_on);
  ExpectUnused(check.rule_b_spare_5, check.rule_b_spare_5_on);
  EXPECT_EQ(check.rule_b_double_tol, 0.6F);
}

TEST(DefaultConfig, HighReflRuleC) {
  const HighReflCheck& check = Config().high_refl_check;
  EXPECT_TRUE(check.rule_c_enable);
  EXPECT_EQ(check.rule_c_height, 250.0F);
  ExpectBand(check.rule_c_range, 7.0F, 50.0F);
  EXPECT_TRUE(check.rule_c_range_on);
  ExpectUnused(check.rule_c_spare_1, check.rule_c_spare_1_on);
  ExpectUnused(check.rule_c_spare_2, check.rule_c_spare_2_on);
  ExpectUnused(check.rule_c_spare_3, check.rule_c_spare_3_on);
  ExpectUnused(check.rule_c_spare_4, check.rule_c_spare_4_on);
  ExpectUnused(check.rule_c_spare_5, check.rule_c_spare_5_on);
  EXPECT_EQ(check.rule_c_spare, 0.0F);
}

TEST(DefaultConfig, HighReflRuleD) {
  const HighReflCheck& check = Config().high_refl_check;
  EXPECT_TRUE(check.rule_d_enable);
  EXPECT_EQ(check.rule_d_height, 170.0F);
  ExpectUnused(check.rule_d_spare_1, check.rule_d_spare_1_on);
  ExpectBand(check.rule_d_gap, 1.0F, 2.5F);
  EXPECT_TRUE(check.rule_d_gap_on);
  ExpectBand(check.rule_d_height2, 0.0F, 20.0F);
  EXPECT_TRUE(check.rule_d_height2_on);
  ExpectUnused(check.rule_d_spare_2, check.rule_d_spare_2_on);
  ExpectUnused(check.rule_d_spare_3, check.rule_d_spare_3_on);
  ExpectUnused(check.rule_d_spare_4, check.rule_d_spare_4_on);
  EXPECT_EQ(check.rule_d_spare, 0.0F);
  EXPECT_FALSE(check.near_refl_enable);
  EXPECT_EQ(check.near_refl_range, 1.0F);
}

TEST(DefaultConfig, TheHighReflCheckTracesTheDebugPixel) {
  const HighReflCheck& check = Config().high_refl_check;
  EXPECT_EQ(check.trace_enable, Config().debug.if_debug);
  EXPECT_EQ(check.trace_row, 44);
  EXPECT_EQ(check.trace_col, 174);
  EXPECT_EQ(check.trace_echo, Config().debug.echo);
}

// A block is copied as bytes, so its fields must stay together in their order.
TEST(DefaultConfig, BlocksArePlainAndInOrder) {
  EXPECT_TRUE(std::is_trivially_copyable_v<HighReflCheck>);
  EXPECT_TRUE(std::is_trivially_copyable_v<BloomSuppressCalib>);
  const std::vector<std::size_t> offsets{offsetof(BloomSuppressCalib, enable),
                                         offsetof(BloomSuppressCalib, psf_coeff),
                                         offsetof(BloomSuppressCalib, dist_neighbor_enabled),
                                         offsetof(BloomSuppressCalib, pattern_enabled),
                                         offsetof(BloomSuppressCalib, dist_pattern_enabled),
                                         offsetof(BloomSuppressCalib, pattern_gain),
                                         offsetof(BloomSuppressCalib, pattern_offset),
                                         offsetof(BloomSuppressCalib, dist_gate_m),
                                         offsetof(BloomSuppressCalib, source_min_dist_m),
                                         offsetof(BloomSuppressCalib, edge_neighbor_threshold_m),
                                         offsetof(BloomSuppressCalib, min_n),
                                         offsetof(BloomSuppressCalib, threshold),
                                         offsetof(BloomSuppressCalib, psf_same_block),
                                         offsetof(BloomSuppressCalib, psf_adjacent_block),
                                         offsetof(BloomSuppressCalib, psf_diagonal_block),
                                         offsetof(BloomSuppressCalib, power_template)};
  EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
  EXPECT_EQ(offsets.front(), 0U);
  EXPECT_LT(offsetof(HighReflCheck, rule_a_spare), offsetof(HighReflCheck, rule_b_enable));
  EXPECT_LT(offsetof(HighReflCheck, rule_b_double_tol), offsetof(HighReflCheck, rule_c_enable));
  EXPECT_LT(offsetof(HighReflCheck, rule_c_spare), offsetof(HighReflCheck, rule_d_enable));
  EXPECT_LT(offsetof(HighReflCheck, rule_d_spare), offsetof(HighReflCheck, near_refl_enable));
  EXPECT_LT(offsetof(HighReflCheck, near_refl_range), offsetof(HighReflCheck, trace_enable));
}

TEST(DefaultConfig, ShotNoise) {
  EXPECT_TRUE(Config().shot_noise_enable);
  EXPECT_EQ(Config().shot_noise_dist_gate, 1.0F);
  EXPECT_EQ(Config().shot_noise_spare_f0, 20.0F);
  EXPECT_EQ(Config().shot_noise_spare_i0, 5);
  EXPECT_EQ(Config().shot_noise_spare_i1, 2);
  EXPECT_EQ(Config().shot_noise_spare_i2, 10);
  EXPECT_EQ(Config().shot_noise_spare_i3, 20);
  EXPECT_EQ(Config().shot_noise_spare_f1, 5.5F);
  EXPECT_EQ(Config().shot_noise_spare_f2, 12.0F);
}

TEST(DefaultConfig, EchoComputation) {
  EXPECT_FALSE(Config().parser_spare_flag);
  EXPECT_TRUE(Config().clip_side_peaks);
  EXPECT_EQ(Config().baseline_samples, 4);
  EXPECT_EQ(Config().baseline_rise_gate, 550.0F);
  EXPECT_EQ(Config().baseline_rise_limit, 10.0F);
}

TEST(DefaultConfig, MountingIsTheIdentityWithANegativeZero) {
  const TransformParam& transform = Config().transform;
  EXPECT_EQ(transform.x, 0.0);
  EXPECT_EQ(transform.y, 0.0);
  EXPECT_EQ(transform.z, 0.0);
  EXPECT_EQ(transform.roll, 0.0);
  EXPECT_EQ(transform.pitch, 0.0);
  EXPECT_EQ(transform.yaw, 0.0);
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(transform.rotation[i], i % 4 == 0 ? 1.0 : 0.0) << i;
    EXPECT_EQ(std::signbit(transform.rotation[i]), i == 6) << i;
  }
}

TEST(DefaultConfig, ACopyIsDeep) {
  DefaultConfig copy = Config();
  ASSERT_EQ(copy.ground_min_dist, Config().ground_min_dist);
  copy.ground_min_dist[0] = -1.0F;
  copy.lidar_name = "other";
  EXPECT_EQ(Config().ground_min_dist[0], 0.4F);
  EXPECT_EQ(Config().lidar_name, "QNDR_001");
}

}  // namespace
}  // namespace kerul::lidar
