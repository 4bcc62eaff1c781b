// The settings by name: a table without decisions.
#include <limits>
#include <utility>

#include "MIPI_reader/parser/lidar_point.h"
#include "pixel_story/settings.h"

namespace kerul::lidar::story {
namespace {

// Appends settings, the whole numbers with their limits.
class List {
 public:
  explicit List(std::string prefix = "") : prefix_(std::move(prefix)) {}

  template <typename Value>
  void Add(const char* name, Value& value, std::int64_t least, std::int64_t most) {
    settings.push_back({prefix_ + name, &value, least, most});
  }
  void Add(const char* name, bool& value) { Add(name, value, 0, 1); }
  void Add(const char* name, float& value) { Add(name, value, 0, 0); }
  void Add(const char* name, std::vector<float>& value) { Add(name, value, 0, 0); }
  void Add(const char* name, std::uint16_t& value) {
    Add(name, value, 0, std::numeric_limits<std::uint16_t>::max());
  }
  void Add(const std::string& name, HighReflBand& band, bool& on) {
    Add((name + ".lo").c_str(), band.lo);
    Add((name + ".hi").c_str(), band.hi);
    Add((name + "_on").c_str(), on);
  }
  void Append(const List& other) {
    settings.insert(settings.end(), other.settings.begin(), other.settings.end());
  }

  std::vector<Setting> settings;

 private:
  std::string prefix_;
};

void AddEchoes(DefaultConfig& config, List& list) {
  list.Add("output_mode", config.output_mode);
  list.Add("cogw_high_mode", config.cogw_high_mode);
  list.Add("echo_num", config.echo_num, 1, kEchoSlots);
  list.Add("echo_output_code", config.echo_output_code);
  list.Add("calib_enable", config.calib_enable);
  list.Add("neighbor_check_enable", config.neighbor_check_enable);
}

void AddGround(DefaultConfig& config, List& list) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  list.Add("ground_enable", config.ground_enable);
  list.Add("ground_vert_seed_enable", config.ground_vert_seed_enable);
  list.Add("ground_plane_enable", config.ground_plane_enable);
  list.Add("ground_smooth_enable", config.ground_smooth_enable);
  list.Add("ground_vert_span_ratio", config.ground_vert_span_ratio);
  list.Add("ground_vert_span_max", config.ground_vert_span_max);
  list.Add("ground_mean_diff_ratio", config.ground_mean_diff_ratio);
  list.Add("ground_mean_diff_max", config.ground_mean_diff_max);
  list.Add("ground_max_diff_ratio", config.ground_max_diff_ratio);
  list.Add("ground_max_diff_max", config.ground_max_diff_max);
  list.Add("ground_min_dist", config.ground_min_dist);
  list.Add("ground_plane_min_points", config.ground_plane_min_points, 0, kMost);
  list.Add("ground_plane_keep_ratio", config.ground_plane_keep_ratio);
  list.Add("ground_plane_inlier_m", config.ground_plane_inlier_m);
  list.Add("ground_plane_pull", config.ground_plane_pull);
  list.Add("ground_plane_pull_full_m", config.ground_plane_pull_full_m);
  list.Add("ground_plane_pull_zero_m", config.ground_plane_pull_zero_m);
  list.Add("ground_plane_col_step", config.ground_plane_col_step, 1, kMost);
  list.Add("ground_plane_max_points", config.ground_plane_max_points, 0, kMost);
}

void AddBloom(BloomSuppressCalib& bloom, List& list) {
  list.Add("enable", bloom.enable);
  list.Add("psf_coeff", bloom.psf_coeff);
  list.Add("dist_neighbor_enabled", bloom.dist_neighbor_enabled);
  list.Add("pattern_enabled", bloom.pattern_enabled);
  list.Add("dist_pattern_enabled", bloom.dist_pattern_enabled);
  list.Add("pattern_gain", bloom.pattern_gain);
  list.Add("pattern_offset", bloom.pattern_offset);
  list.Add("dist_gate_m", bloom.dist_gate_m);
  list.Add("source_min_dist_m", bloom.source_min_dist_m);
  list.Add("edge_neighbor_threshold_m", bloom.edge_neighbor_threshold_m);
  list.Add("min_n", bloom.min_n, 0, std::numeric_limits<std::int32_t>::max());
  list.Add("threshold", bloom.threshold);
}

// Only what the rules read.
void AddHighReflectivity(HighReflCheck& check, List& list) {
  list.Add("enable", check.enable);
  list.Add("rule_a_enable", check.rule_a_enable);
  list.Add("rule_a_height", check.rule_a_height);
  list.Add("rule_a_range", check.rule_a_range, check.rule_a_range_on);
  list.Add("rule_a_gap", check.rule_a_gap, check.rule_a_gap_on);
  list.Add("rule_a_height2_low", check.rule_a_height2_low, check.rule_a_height2_low_on);
  list.Add("rule_a_height2", check.rule_a_height2, check.rule_a_height2_on);
  list.Add("rule_a_height2_rms.lo", check.rule_a_height2_rms.lo);
  list.Add("rule_a_height2_rms.hi", check.rule_a_height2_rms.hi);
  list.Add("rule_a_rms", check.rule_a_rms, check.rule_a_rms_on);
  list.Add("rule_a_rms_gate", check.rule_a_rms_gate);
  list.Add("rule_b_enable", check.rule_b_enable);
  list.Add("rule_b_height", check.rule_b_height);
  list.Add("rule_b_range", check.rule_b_range, check.rule_b_range_on);
  list.Add("rule_b_double_tol", check.rule_b_double_tol);
  list.Add("rule_c_enable", check.rule_c_enable);
  list.Add("rule_c_height", check.rule_c_height);
  list.Add("rule_c_range", check.rule_c_range, check.rule_c_range_on);
  list.Add("rule_d_enable", check.rule_d_enable);
  list.Add("rule_d_height", check.rule_d_height);
  list.Add("rule_d_gap", check.rule_d_gap, check.rule_d_gap_on);
  list.Add("rule_d_height2", check.rule_d_height2, check.rule_d_height2_on);
  list.Add("near_refl_enable", check.near_refl_enable);
  list.Add("near_refl_range", check.near_refl_range);
}

void AddRest(DefaultConfig& config, List& list) {
  list.Add("shot_noise_enable", config.shot_noise_enable);
  list.Add("shot_noise_dist_gate", config.shot_noise_dist_gate);
  list.Add("clip_side_peaks", config.clip_side_peaks);
  list.Add("baseline_samples", config.baseline_samples, 1, kWindowSamples);
  list.Add("baseline_rise_gate", config.baseline_rise_gate);
  list.Add("baseline_rise_limit", config.baseline_rise_limit);
}

}  // namespace

std::vector<Setting> SettingsOf(DefaultConfig& config) {
  List list;
  AddEchoes(config, list);
  AddGround(config, list);
  list.Add("high_ref_blooming", config.high_ref_blooming);
  list.Add("blooming_filter_enable", config.blooming_filter_enable);
  list.Add("env_bias", config.env_bias);
  List bloom("bloom_suppress_calib.");
  AddBloom(config.bloom_suppress_calib, bloom);
  list.Append(bloom);
  List high_reflectivity("high_refl_check.");
  AddHighReflectivity(config.high_refl_check, high_reflectivity);
  list.Append(high_reflectivity);
  AddRest(config, list);
  return list.settings;
}

}  // namespace kerul::lidar::story
