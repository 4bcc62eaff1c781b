// The node's output is what the reference gives under settings other than the defaults.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "stream_expectations.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

struct Setting {
  const char* name;
  std::function<void(DefaultConfig&)> change;
  // Without what hides the setting: so has the stream that it is compared with.
  std::function<void(DefaultConfig&)> uncover = [](DefaultConfig&) {};
};

// The check rewrites the processed fields, and erases what the filter for shot noise looks for.
void NoNeighbourCheck(DefaultConfig& config) { config.neighbor_check_enable = false; }

void AllGroundStages(DefaultConfig& config) {
  config.ground_plane_enable = true;
  config.ground_vert_seed_enable = true;
  config.ground_smooth_enable = true;
}

std::vector<Setting> Settings() {
  using C = DefaultConfig;
  return {
      {"NoCalibration", [](C& c) { c.calib_enable = false; }},
      {"OneEcho", [](C& c) { c.echo_num = 1; }},
      {"OneEchoWithTheSecondAskedFor",
       [](C& c) {
         c.echo_num = 1;
         c.echo_output_code = 12;
       }},
      {"NoEcho", [](C& c) { c.echo_num = 0; }},
      {"NoNeighbourCheck", NoNeighbourCheck},
      {"NoGround", [](C& c) { c.ground_enable = false; }},
      {"GroundPlane", [](C& c) { c.ground_plane_enable = true; }},
      {"GroundPlaneAlone",
       [](C& c) {
         c.ground_enable = false;
         c.ground_plane_enable = true;
       }},
      {"GroundSeedByIncidence", [](C& c) { c.ground_vert_seed_enable = true; }},
      {"GroundSmoothing", [](C& c) { c.ground_smooth_enable = true; }, NoNeighbourCheck},
      {"AllGroundStages", AllGroundStages},
      {"GroundPlaneFromFewPoints",
       [](C& c) {
         AllGroundStages(c);
         c.ground_plane_min_points = 4;
         c.ground_plane_max_points = 40;
         c.ground_plane_col_step = 7;
         c.ground_plane_pull = 0.5F;
       }},
      {"NoShotNoiseFilter", [](C& c) { c.shot_noise_enable = false; }, NoNeighbourCheck},
      {"NarrowShotNoiseGate", [](C& c) { c.shot_noise_dist_gate = 0.1F; }},
      {"BloomMarkedOnly", [](C& c) { c.blooming_filter_enable = false; }},
      {"NoBloomPass", [](C& c) { c.high_ref_blooming = false; }},
      {"BloomWithoutPattern", [](C& c) { c.bloom_suppress_calib.pattern_enabled = false; }},
      {"BloomOfWeakSources", [](C& c) { c.bloom_suppress_calib.threshold = 40.0F; }},
      {"NoHighReflectivityCheck", [](C& c) { c.high_refl_check.enable = false; }},
      {"NearReflectivity",
       [](C& c) {
         c.high_refl_check.near_refl_enable = true;
         c.high_refl_check.near_refl_range = 12.0F;
       }},
      {"NoClipping", [](C& c) { c.clip_side_peaks = false; }},
      {"HighWidthAlways", [](C& c) { c.cogw_high_mode = 1; }},
      {"OtherBaseline",
       [](C& c) {
         c.baseline_samples = 17;
         c.baseline_rise_gate = 0.0F;
         c.baseline_rise_limit = 300.0F;
       }},
      {"NoBaselineSamples", [](C& c) { c.baseline_samples = 0; }},
      {"RangeByBackground",
       [](C& c) {
         c.tables.env_cogt = {0.001F, -0.2F, 3.0F, 0.5F};
       }},
      {"ReflectivityFilter", [](C& c) { c.tables.retro_filter.assign(31, 0.75F); }},
      {"NoOptionalTables",
       [](C& c) {
         c.tables.cogh_efficiant.clear();
         c.tables.env_cogh.clear();
         c.tables.cogw_a.clear();
         c.tables.high_threshold_cogh_in.clear();
         c.tables.detect_threshold.clear();
         c.tables.shot_times.clear();
         c.tables.psf_same_block.clear();
         c.tables.power_template.clear();
       }},
      {"OneFrameOnly", [](C& c) { c.run_once = true; }},
  };
}

class WholeStreamSetting : public ::testing::TestWithParam<Setting> {};

// Two packets to a block with flags show most of what the passes leave.
TEST_P(WholeStreamSetting, GivesTheReferencesBytes) {
  DefaultConfig config = StreamConfig();
  config.echo_output_code = 12;
  config.output_mode = 12;
  GetParam().uncover(config);
  SimulatedStream::Plan plan = OneMixedFrame();
  plan.faults = {.loss = 0.002, .duplicate = 0.002, .reorder = 0.01};
  const TwinCounts without = ExpectSameOutput(config, plan);
  config.shm_name = UniqueShmName("stream");
  GetParam().change(config);
  const TwinCounts counts = ExpectSameOutput(config, plan);
  EXPECT_GE(counts.packets, config.echo_num == 0 ? 0U : 35U * 48U);
  EXPECT_NE(counts.digest, without.digest) << "the setting changes nothing";
}

INSTANTIATE_TEST_SUITE_P(Every, WholeStreamSetting, ::testing::ValuesIn(Settings()),
                         [](const auto& setting) { return setting.param.name; });

// Only the export shows it, but the doubling covers the whole frame.
TEST(WholeStreamSettings, DoubledFramesLeaveTheStreamAsItIs) {
  DefaultConfig config = StreamConfig();
  const TwinCounts without = ExpectSameOutput(config, OneMixedFrame());
  config.shm_name = UniqueShmName("stream");
  config.frame_output_enable = true;
  const TwinCounts with = ExpectSameOutput(config, OneMixedFrame());
  EXPECT_GE(with.packets, 1728U);
  EXPECT_EQ(with.digest, without.digest);
}

class ExportedFiles : public ::testing::TestWithParam<const char*> {};

// TwinRun compares the files as well.
TEST_P(ExportedFiles, AreTheReferences) {
  const TempDir dir;
  DefaultConfig config = StreamConfig();
  config.frame_output_enable = true;
  config.export_dir = dir.path().string();
  config.export_mode = GetParam();
  SimulatedStream::Plan plan = OneMixedFrame();
  plan.datagrams = 2 * 6912 + 500;
  plan.faults = {.reorder = 0.01};
  const TwinCounts counts = ExpectSameOutput(config, plan);
  EXPECT_GE(counts.exported_files, 2U);
}

INSTANTIATE_TEST_SUITE_P(WholeStream, ExportedFiles,
                         ::testing::Values("raw", "processed", "interp"),
                         [](const auto& mode) { return std::string(mode.param); });

}  // namespace
}  // namespace kerul::lidar::testing
