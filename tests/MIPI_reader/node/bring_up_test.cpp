// What a start makes of a configuration: settings, tables that fit and tables that do not.
#include "MIPI_reader/node/bring_up.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kerul::lidar::testing {
namespace {

// The text of what `make` throws; empty when it does not.
template <typename Make>
std::string FailureOf(const Make& make) {
  try {
    make();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

// Without the two lines of sizes that a table of the wrong size prints.
template <typename Make>
std::string SilentFailureOf(const Make& make) {
  ::testing::internal::CaptureStdout();
  const std::string failure = FailureOf(make);
  ::testing::internal::GetCapturedStdout();
  return failure;
}

// ---- Ground.

TEST(GroundSettingsOfAConfiguration, HoldEachSettingUnderItsOwnName) {
  DefaultConfig config;
  config.ground_vert_span_ratio = 1.0F;
  config.ground_vert_span_max = 2.0F;
  config.ground_mean_diff_ratio = 3.0F;
  config.ground_mean_diff_max = 4.0F;
  config.ground_max_diff_ratio = 5.0F;
  config.ground_max_diff_max = 6.0F;
  config.ground_min_dist = {7.0F, 8.0F};
  config.ground_plane_min_points = 9;
  config.ground_plane_keep_ratio = 10.0F;
  config.ground_plane_inlier_m = 11.0F;
  config.ground_plane_pull = 12.0F;
  config.ground_plane_pull_full_m = 13.0F;
  config.ground_plane_pull_zero_m = 14.0F;
  config.ground_plane_col_step = 15;
  config.ground_plane_max_points = 16;
  const GroundSettings settings = MakeGroundSettings(config);
  EXPECT_EQ(settings.vert_span_ratio, 1.0F);
  EXPECT_EQ(settings.vert_span_max, 2.0F);
  EXPECT_EQ(settings.mean_diff_ratio, 3.0F);
  EXPECT_EQ(settings.mean_diff_max, 4.0F);
  EXPECT_EQ(settings.max_diff_ratio, 5.0F);
  EXPECT_EQ(settings.max_diff_max, 6.0F);
  EXPECT_EQ(settings.min_dist, (std::vector<float>{7.0F, 8.0F}));
  EXPECT_EQ(settings.plane_min_points, 9);
  EXPECT_EQ(settings.plane_keep_ratio, 10.0F);
  EXPECT_EQ(settings.plane_inlier_m, 11.0F);
  EXPECT_EQ(settings.plane_pull, 12.0F);
  EXPECT_EQ(settings.plane_pull_full_m, 13.0F);
  EXPECT_EQ(settings.plane_pull_zero_m, 14.0F);
  EXPECT_EQ(settings.plane_col_step, 15);
  EXPECT_EQ(settings.plane_max_points, 16);
}

TEST(GroundSettingsOfAConfiguration, HoldEachSwitchOnItsOwn) {
  DefaultConfig config;
  config.ground_vert_seed_enable = true;
  GroundSettings settings = MakeGroundSettings(config);
  EXPECT_TRUE(settings.vert_seed_enable && !settings.plane_enable && !settings.smooth_enable);
  config = {};
  config.ground_plane_enable = true;
  settings = MakeGroundSettings(config);
  EXPECT_TRUE(!settings.vert_seed_enable && settings.plane_enable && !settings.smooth_enable);
  config = {};
  config.ground_smooth_enable = true;
  settings = MakeGroundSettings(config);
  EXPECT_TRUE(!settings.vert_seed_enable && !settings.plane_enable && settings.smooth_enable);
}

// ---- Bloom.

// The block's own tables are zero; the tables count up from 1, 101, 201 and 301.
DefaultConfig ConfigWithBloomTables() {
  DefaultConfig config;
  config.high_ref_blooming = true;
  config.bloom_suppress_calib.psf_coeff = 0.5F;
  const auto count_up = [](std::vector<float>& table, std::size_t entries, float first) {
    for (std::size_t i = 0; i < entries; ++i) table.push_back(first + static_cast<float>(i));
  };
  count_up(config.tables.psf_same_block, 32, 1.0F);
  count_up(config.tables.psf_adjacent_block, 32, 101.0F);
  count_up(config.tables.psf_diagonal_block, 32, 201.0F);
  count_up(config.tables.power_template, 36, 301.0F);
  return config;
}

TEST(BloomTablesOfAConfiguration, ReplaceTheBlocksOwnToTheLastEntry) {
  const BloomSuppressCalib calib = MakeBloomCalib(ConfigWithBloomTables());
  EXPECT_TRUE(calib.enable);
  EXPECT_EQ(calib.psf_coeff, 0.5F);
  EXPECT_EQ(calib.psf_same_block[0], 1.0F);
  EXPECT_EQ(calib.psf_same_block[31], 32.0F);
  EXPECT_EQ(calib.psf_adjacent_block[0], 101.0F);
  EXPECT_EQ(calib.psf_adjacent_block[31], 132.0F);
  EXPECT_EQ(calib.psf_diagonal_block[0], 201.0F);
  EXPECT_EQ(calib.psf_diagonal_block[31], 232.0F);
  EXPECT_EQ(calib.power_template[0][5], 306.0F);  // row by row
  EXPECT_EQ(calib.power_template[1][0], 307.0F);
  EXPECT_EQ(calib.power_template[5][5], 336.0F);
}

TEST(BloomTablesOfAConfiguration, OneSpillTableOfTheWrongSizeLeavesAllThreeOut) {
  std::vector<float> DefaultTables::*const spill_tables[] = {&DefaultTables::psf_same_block,
                                                             &DefaultTables::psf_adjacent_block,
                                                             &DefaultTables::psf_diagonal_block};
  for (const auto table : spill_tables) {
    for (const std::size_t size : {0U, 31U, 33U}) {
      DefaultConfig config = ConfigWithBloomTables();
      (config.tables.*table).resize(size);
      const BloomSuppressCalib calib = MakeBloomCalib(config);
      EXPECT_EQ(calib.psf_same_block[1], 0.0F) << size;
      EXPECT_EQ(calib.psf_adjacent_block[1], 0.0F) << size;
      EXPECT_EQ(calib.psf_diagonal_block[1], 0.0F) << size;
      EXPECT_EQ(calib.power_template[0][0], 301.0F) << size;
    }
  }
}

TEST(BloomTablesOfAConfiguration, ATemplateOfTheWrongSizeIsLeftOutAlone) {
  for (const std::size_t size : {0U, 35U, 37U}) {
    DefaultConfig config = ConfigWithBloomTables();
    config.tables.power_template.resize(size);
    const BloomSuppressCalib calib = MakeBloomCalib(config);
    EXPECT_EQ(calib.power_template[0][0], 0.0F) << size;
    EXPECT_EQ(calib.psf_same_block[0], 1.0F) << size;
  }
}

TEST(BloomTablesOfAConfiguration, WithBloomOffAreTheBuiltInStateSwitchedOff) {
  DefaultConfig config = ConfigWithBloomTables();
  config.high_ref_blooming = false;
  const BloomSuppressCalib calib = MakeBloomCalib(config);
  EXPECT_FALSE(calib.enable);
  EXPECT_EQ(calib.psf_coeff, 1.0F);
  EXPECT_TRUE(calib.dist_neighbor_enabled);
  EXPECT_EQ(calib.psf_same_block[0], 0.0F);
  EXPECT_EQ(calib.power_template[0][0], 0.0F);
}

// ---- Parser.

TEST(ParserOfAConfiguration, TakesAtLeastOneBaselineSample) {
  DefaultConfig config;
  LidarParserQDV11 parser;
  const auto samples = [&](int setting) {
    config.baseline_samples = setting;
    ConfigureParser(config, parser);
    return parser.baseline_samples;
  };
  EXPECT_EQ(samples(-5), 1);
  EXPECT_EQ(samples(0), 1);
  EXPECT_EQ(samples(1), 1);
  EXPECT_EQ(samples(2), 2);
}

TEST(ParserOfAConfiguration, TakesNoNegativeBaselineRise) {
  DefaultConfig config;
  LidarParserQDV11 parser;
  config.baseline_rise_gate = -0.5F;
  config.baseline_rise_limit = 3.0F;
  ConfigureParser(config, parser);
  EXPECT_EQ(parser.baseline_rise_gate, 0.0F);
  EXPECT_EQ(parser.baseline_rise_limit, 3.0F);
  config.baseline_rise_gate = 0.25F;
  config.baseline_rise_limit = -3.0F;
  ConfigureParser(config, parser);
  EXPECT_EQ(parser.baseline_rise_gate, 0.25F);
  EXPECT_EQ(parser.baseline_rise_limit, 0.0F);
}

TEST(ParserOfAConfiguration, TakesTheTracedPixelAndTheTables) {
  DefaultConfig config;
  config.debug.row = 11;
  config.debug.col = 12;
  config.debug.echo = 1;
  config.cogw_high_mode = 7;
  config.tables.shot_times = {80.0F, 400.0F};
  config.tables.detect_threshold = {3, 4, 5};
  LidarParserQDV11 parser;
  ConfigureParser(config, parser);
  EXPECT_EQ(parser.debug_row, 11);
  EXPECT_EQ(parser.debug_col, 12);
  EXPECT_EQ(parser.debug_echo, 1);
  EXPECT_EQ(parser.cogw_high_mode, 7);
  EXPECT_EQ(parser.shot_times, (std::vector<float>{80.0F, 400.0F}));
  EXPECT_EQ(parser.detect_threshold_bins, (std::vector<std::uint16_t>{3, 4, 5}));
}

TEST(ParserOfAConfiguration, TakesEachSwitchFromItsOwnSetting) {
  struct Case {
    void (*set)(DefaultConfig&);
    bool LidarParserQDV11::*taken;
  };
  const Case cases[] = {
      {[](DefaultConfig& c) { c.debug.if_debug = true; }, &LidarParserQDV11::echo_metrics_debug},
      {[](DefaultConfig& c) { c.debug.packet_debug = true; }, &LidarParserQDV11::packet_debug},
      {[](DefaultConfig& c) { c.clip_side_peaks = true; }, &LidarParserQDV11::clip_side_peaks},
      {[](DefaultConfig& c) { c.frame_output_enable = true; }, &LidarParserQDV11::keep_bins}};
  for (const Case& set_one : cases) {
    DefaultConfig config;
    set_one.set(config);
    LidarParserQDV11 parser;
    ConfigureParser(config, parser);
    for (const Case& any : cases) EXPECT_EQ(parser.*any.taken, any.taken == set_one.taken);
  }
}

TEST(WidthCurvesOfAConfiguration, AreNoneWhenOneIsEmptyAndKeepTheirOrder) {
  DefaultTables tables;
  tables.cogw_a.assign(641, 1.0F);
  tables.cogw_b.assign(641, 2.0F);
  EXPECT_EQ(MakeCogwFilter(tables), nullptr);
  tables.cogw_c.assign(641, 3.0F);
  const auto filter = MakeCogwFilter(tables);
  ASSERT_NE(filter, nullptr);
  EXPECT_EQ(filter->cogw_low_curve[640], 1.0F);
  EXPECT_EQ(filter->cogw_gate_curve[640], 2.0F);
  EXPECT_EQ(filter->cogw_high_curve[640], 3.0F);
  tables.cogw_a.clear();
  EXPECT_EQ(MakeCogwFilter(tables), nullptr);
  tables.cogw_a.assign(640, 1.0F);
  EXPECT_EQ(FailureOf([&] { MakeCogwFilter(tables); }),
            "Invalid cogw filter data (expect peak range 0..640)");
}

TEST(WidthCurvesOfAConfiguration, AreJudgedEachByItself) {
  std::vector<float> DefaultTables::*const curves[] = {
      &DefaultTables::cogw_a, &DefaultTables::cogw_b, &DefaultTables::cogw_c};
  DefaultTables whole;
  for (const auto curve : curves) (whole.*curve).assign(641, 1.0F);
  for (const auto curve : curves) {
    DefaultTables tables = whole;
    (tables.*curve).clear();
    EXPECT_EQ(MakeCogwFilter(tables), nullptr);
    for (const std::size_t size : {640U, 642U}) {
      tables = whole;
      (tables.*curve).resize(size);
      EXPECT_EQ(FailureOf([&] { MakeCogwFilter(tables); }),
                "Invalid cogw filter data (expect peak range 0..640)");
    }
    for (const std::size_t gap : {0U, 640U}) {
      tables = whole;
      (tables.*curve)[gap] = std::numeric_limits<float>::quiet_NaN();
      EXPECT_EQ(FailureOf([&] { MakeCogwFilter(tables); }),
                "Invalid cogw filter data: missing curve at peak=" + std::to_string(gap));
    }
  }
}

// ---- Calibration objects.

// Every table of the sensor with a value of its own.
DefaultConfig ConfigWithSensorTables() {
  DefaultConfig config;
  config.calib_enable = true;
  config.high_refl_check.enable = true;
  config.env_bias = 16.5F;  // 15 in the compiled-in configuration
  config.tables.dist_curve.assign(512, 1.0F);
  config.tables.dist_curve_high.assign(512, 2.0F);
  config.tables.dist_offset.assign(82944, 3.0F);
  config.tables.retro_curve.assign(512, 4.0F);
  config.tables.retro_scale.assign(82944, 5.0F);
  config.tables.env_cogh.assign(10, 6.0F);
  config.tables.env_cogh_high.assign(10, 7.0F);
  config.tables.high_threshold_cogh_in = {0.0F, 8.0F};
  config.tables.high_threshold_cogh_out = {0.0F, 9.0F};
  return config;
}

CalibrationObjects Make(const DefaultConfig& config) {
  return MakeCalibration(config, TablesOf(config.tables));
}

TEST(CalibrationObjectsOfAConfiguration, HoldEachTableInItsPlace) {
  const CalibrationObjects objects = Make(ConfigWithSensorTables());
  EXPECT_EQ(objects.dist->curve.at(511), 1.0F);
  EXPECT_EQ(objects.dist->curve_high.at(511), 2.0F);
  EXPECT_EQ(objects.dist->offset.at(82943), 3.0F);
  EXPECT_EQ(objects.retro->retro_curve.at(511), 4.0F);
  EXPECT_EQ(objects.retro->retro_scale.at(82943), 5.0F);
  EXPECT_TRUE(objects.retro->high_refl_check.enable);
  EXPECT_EQ(objects.env->env_cogh.at(9), 6.0F);
  EXPECT_EQ(objects.env->env_cogh_high.at(9), 7.0F);
  EXPECT_EQ(objects.env->bias, 16.5F);
  EXPECT_EQ(objects.high_threshold_map->cogh_in.at(1), 8.0F);
  EXPECT_EQ(objects.high_threshold_map->cogh_out.at(1), 9.0F);
  EXPECT_TRUE(objects.high_refl_check->enable);
  const CalibrationSteps steps = StepsOf(objects);
  EXPECT_EQ(steps.env, objects.env.get());
  EXPECT_EQ(steps.dist, objects.dist.get());
  EXPECT_EQ(steps.high_threshold_map, objects.high_threshold_map.get());
  EXPECT_EQ(steps.high_refl_check, objects.high_refl_check.get());
  EXPECT_EQ(steps.retro, objects.retro.get());
}

TEST(CalibrationObjectsOfAConfiguration, TakeTheSensorsOwnTablesWhereItHasThem) {
  Para2LidarCalib para2;
  para2.dist_curve.assign(512, 21.0F);
  para2.dist_curve_high.assign(512, 22.0F);
  para2.dist_offset.assign(82944, 23.0F);
  para2.retro_curve.assign(512, 24.0F);
  para2.retro_scale.assign(82944, 25.0F);
  const CalibrationObjects objects = MakeCalibration(ConfigWithSensorTables(), TablesOf(para2));
  EXPECT_EQ(objects.dist->curve.at(0), 21.0F);
  EXPECT_EQ(objects.dist->curve_high.at(0), 22.0F);
  EXPECT_EQ(objects.dist->offset.at(0), 23.0F);
  EXPECT_EQ(objects.retro->retro_curve.at(0), 24.0F);
  EXPECT_EQ(objects.retro->retro_scale.at(0), 25.0F);
  EXPECT_EQ(objects.env->env_cogh.at(0), 6.0F);
}

TEST(CalibrationObjectsOfAConfiguration, WithCalibrationOffAreTheCommonOnesAndNoTableIsJudged) {
  DefaultConfig config = ConfigWithSensorTables();
  config.calib_enable = false;
  config.tables.dist_curve.clear();
  const CalibrationObjects objects = Make(config);
  EXPECT_EQ(objects.dist, nullptr);
  EXPECT_EQ(objects.retro, nullptr);
  EXPECT_EQ(objects.high_refl_check, nullptr);
  EXPECT_NE(objects.env, nullptr);
  EXPECT_NE(objects.high_threshold_map, nullptr);
}

TEST(CalibrationObjectsOfAConfiguration, ATableOfTheWrongSizeFails) {
  struct Case {
    std::vector<float> DefaultTables::*table;
    std::size_t size;
    const char* error;
  };
  const char* const dist = "Invalid dist calib data (expect curve=512, offset=288*288)";
  const char* const retro = "Invalid retro calib data (expect curve=512, scale=288*288)";
  const char* const map = "Invalid high-threshold cogh mapping data";
  const char* const cogt = "Invalid env cogt calib data (expect size 4)";
  const Case cases[] = {
      {&DefaultTables::dist_curve, 0, dist},
      {&DefaultTables::dist_curve, 511, dist},
      {&DefaultTables::dist_curve, 513, dist},
      {&DefaultTables::dist_offset, 0, dist},
      {&DefaultTables::dist_offset, 82943, dist},
      {&DefaultTables::dist_offset, 82945, dist},
      {&DefaultTables::dist_curve_high, 1, "Invalid dist curve high vector (expect 512, got 1)"},
      {&DefaultTables::dist_curve_high, 511,
       "Invalid dist curve high vector (expect 512, got 511)"},
      {&DefaultTables::dist_curve_high, 513,
       "Invalid dist curve high vector (expect 512, got 513)"},
      {&DefaultTables::retro_curve, 0, retro},
      {&DefaultTables::retro_curve, 511, retro},
      {&DefaultTables::retro_curve, 513, retro},
      {&DefaultTables::retro_scale, 0, retro},
      {&DefaultTables::retro_scale, 82943, retro},
      {&DefaultTables::retro_scale, 82945, retro},
      {&DefaultTables::env_cogt, 1, cogt},
      {&DefaultTables::env_cogt, 3, cogt},
      {&DefaultTables::env_cogt, 5, cogt},
      {&DefaultTables::high_threshold_cogh_in, 1, map},
      {&DefaultTables::high_threshold_cogh_in, 3, map},
      {&DefaultTables::high_threshold_cogh_out, 1, map},
      {&DefaultTables::high_threshold_cogh_out, 3, map},
  };
  for (const Case& wrong : cases) {
    DefaultConfig config = ConfigWithSensorTables();
    (config.tables.*wrong.table).resize(wrong.size);
    EXPECT_EQ(SilentFailureOf([&] { Make(config); }), wrong.error) << wrong.size;
  }
}

TEST(CalibrationObjectsOfAConfiguration, AHighThresholdMapOfOneEntryFailsAndOneOfTwoServes) {
  DefaultConfig config = ConfigWithSensorTables();
  EXPECT_NE(Make(config).high_threshold_map, nullptr);
  config.tables.high_threshold_cogh_in.resize(1);
  config.tables.high_threshold_cogh_out.resize(1);
  EXPECT_EQ(FailureOf([&] { Make(config); }), "Invalid high-threshold cogh mapping data");
}

TEST(CalibrationObjectsOfAConfiguration, AnEmptyOptionalTableSwitchesItsStepOff) {
  DefaultConfig config = ConfigWithSensorTables();
  config.tables.env_cogh.clear();
  config.tables.dist_curve_high.clear();
  config.high_refl_check.enable = false;
  CalibrationObjects objects = Make(config);
  EXPECT_EQ(objects.env, nullptr);
  EXPECT_FALSE(objects.dist->has_curve_high);
  EXPECT_EQ(objects.high_refl_check, nullptr);
  EXPECT_NE(objects.high_threshold_map, nullptr);
  config = ConfigWithSensorTables();
  config.tables.env_cogh_high.clear();
  config.tables.high_threshold_cogh_in.clear();
  objects = Make(config);
  EXPECT_EQ(objects.env, nullptr);
  EXPECT_EQ(objects.high_threshold_map, nullptr);
  config = ConfigWithSensorTables();
  config.tables.high_threshold_cogh_out.clear();
  EXPECT_EQ(Make(config).high_threshold_map, nullptr);
}

TEST(CalibrationObjectsOfAConfiguration, AnOptionalTableIsTakenWithItsSizeAloneAndElseLeftOut) {
  DefaultConfig config = ConfigWithSensorTables();
  const auto state = [&](std::size_t efficiant, std::size_t filter) {
    config.tables.cogh_efficiant.assign(efficiant, 1.0F);
    config.tables.retro_filter.assign(filter, 1.0F);
    return std::pair{StateOfCoghEfficiant(config.tables), StateOfRetroFilter(config.tables)};
  };
  using enum OptionalTable;
  EXPECT_EQ(state(0, 0), std::pair(kAbsent, kAbsent));
  EXPECT_EQ(state(599, 30), std::pair(kWrongSize, kWrongSize));
  EXPECT_EQ(Make(config).retro->cogh_efficiant.size(), 0U);
  EXPECT_EQ(Make(config).retro->retro_filter.size(), 0U);
  EXPECT_EQ(state(601, 32), std::pair(kWrongSize, kWrongSize));
  EXPECT_EQ(state(600, 0), std::pair(kTaken, kAbsent));
  EXPECT_TRUE(Make(config).retro->cogh_efficiant_valid);
  EXPECT_FALSE(Make(config).retro->retro_filter_valid);
  EXPECT_EQ(state(0, 31), std::pair(kAbsent, kTaken));
  EXPECT_FALSE(Make(config).retro->cogh_efficiant_valid);
  EXPECT_TRUE(Make(config).retro->retro_filter_valid);
}

}  // namespace
}  // namespace kerul::lidar::testing
