#include <cmath>
#include <limits>
#include <string>

#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/frame_simulator.h"
#include "support/node_fixture.h"
#include "support/start_lines.h"

namespace kerul::lidar::testing {
namespace {

const std::string kHighCurve = kANode.Green("dist curve high load succssed (embedded)");
const std::string kTables = kANode.Green("cogh_efficiant load succssed (default_tables)") +
                            kANode.Green("highrefl check enabled");
const std::string kDist = kTables + kANode.Green("dist calib load succssed (default_tables)");
const std::string kRetro =
    kDist + kHighCurve + kANode.Green("retro calib load succssed (default_tables)");

// The common lines before the one that begins with this text.
std::string CommonLinesBefore(const std::string& text) {
  const std::size_t line = kANode.OfTables().find("] " + text);
  return kANode.OfTables().substr(0, kANode.OfTables().rfind('\n', line) + 1);
}

class CalibrationAssembly : public NodeFixture {
 protected:
  DefaultConfig config_ = TestConfig();

  // The start logs these lines after the ones of input and output, and nothing else.
  void ExpectStart(const std::string& lines) {
    StartNode(config_);
    EXPECT_EQ(NodeLines(start_log_), OpeningNodeLines(config_) + lines);
  }
  void ExpectFailure(const std::string& error, const std::string& lines) {
    EXPECT_EQ(StartFailure(config_), error);
    EXPECT_EQ(NodeLines(start_log_), OpeningNodeLines(config_) + lines);
  }
  bool Logged(const std::string& line) const { return start_log_.find(line) != std::string::npos; }
};

TEST_F(CalibrationAssembly, AStartFromTablesLogsEachStepInOrder) {
  ExpectStart(kRetro + kANode.OfTables());
}

TEST_F(CalibrationAssembly, WithCalibrationOffOnlyTheCommonTablesAreBuilt) {
  config_.calib_enable = false;
  ExpectStart(kANode.OfTables());
  EXPECT_FALSE(Access().HasDistCalib());
  EXPECT_FALSE(Access().HasRetroCalib());
  EXPECT_FALSE(Access().HasHighReflCheck());
  EXPECT_TRUE(Access().HasEnvCalib());
  EXPECT_TRUE(Access().HasHighThresholdMap());
}

TEST_F(CalibrationAssembly, TheDefaultTablesAloneFailAtTheRangeCalibration) {
  config_.tables.dist_curve.clear();
  config_.tables.dist_offset.clear();
  const std::string error = "Invalid dist calib data (expect curve=512, offset=288*288)";
  ExpectFailure(error, kTables + "[INFO] dist_curve.size()=0\n[INFO] dist_offset.size()=0\n" +
                           kANode.Red("dist calib load failed: " + error));
}

TEST_F(CalibrationAssembly, AHighCurveOfTheWrongSizeFailsTheStart) {
  config_.tables.dist_curve_high.assign(100, 0.0F);
  const std::string error = "Invalid dist curve high vector (expect 512, got 100)";
  ExpectFailure(error, kTables + kANode.Red("dist calib load failed: " + error));
}

TEST_F(CalibrationAssembly, WithoutAHighCurveTheLowOneServes) {
  config_.tables.dist_curve_high.clear();
  ExpectStart(kDist +
              kANode.Yellow("dist curve high not configured, high-threshold uses low curve") +
              kANode.Green("retro calib load succssed (default_tables)") + kANode.OfTables());
}

TEST_F(CalibrationAssembly, AReflectivityTableOfTheWrongSizeFailsTheStart) {
  config_.tables.retro_scale.resize(5);
  const std::string error = "Invalid retro calib data (expect curve=512, scale=288*288)";
  ExpectFailure(error, kDist + kHighCurve +
                           "[INFO] retro_curve.size()=512\n[INFO] retro_scale.size()=5\n" +
                           kANode.Red("retro calib load failed: " + error));
}

TEST_F(CalibrationAssembly, OptionalTablesOfTheWrongSizeAreReportedAndLeftOut) {
  config_.tables.cogh_efficiant.resize(599);
  config_.tables.retro_filter.assign(30, 1.0F);
  ExpectStart(kANode.Red("cogh_efficiant load failed (default_tables)") +
              kANode.Red("retro_filter load failed (default_tables)") +
              kRetro.substr(kRetro.find('\n') + 1) + kANode.OfTables());
  EXPECT_FALSE(Access().retro_calib().cogh_efficiant_valid);
  EXPECT_FALSE(Access().retro_calib().retro_filter_valid);
}

TEST_F(CalibrationAssembly, AReflectivityFloorOfTheRightSizeIsTaken) {
  config_.tables.retro_filter.assign(31, 1.0F);
  StartNode(config_);
  EXPECT_TRUE(Logged(kANode.Green("retro_filter load succssed (default_tables)")));
  EXPECT_TRUE(Access().retro_calib().retro_filter_valid);
}

TEST_F(CalibrationAssembly, ABrokenAngleTableIsReportedAndTheStartGoesOn) {
  config_.tables.angle_dat.assign(77, 0);
  ExpectStart(
      kANode.Red("angle calib load failed (default_tables): 角度标定内存块长度不足 (need 78)") +
      kRetro + kANode.OfTables());
  EXPECT_FALSE(Access().angle_grid().valid);
}

TEST_F(CalibrationAssembly, AnAngleTableThatServesIsReportedWithItsShape) {
  const simulator::CalibrationBlobs blobs = simulator::MakeBlobs(simulator::SimulatorOptions{});
  config_.tables.angle_dat.assign(blobs.head.begin() + 20, blobs.head.begin() + 98);
  ExpectStart(kANode.Green("angle calib load succssed (default_tables, shape=3x216x288)") + kRetro +
              kANode.OfTables());
  EXPECT_TRUE(Access().angle_grid().valid);
  const AngleCalibGrid& parsers = Access().parser().angle_grid;
  EXPECT_TRUE(parsers.valid);
  EXPECT_EQ(parsers.rows, 216);
  EXPECT_EQ(parsers.cols, 288);
  EXPECT_EQ(parsers.xyz, Access().angle_grid().xyz);
  EXPECT_EQ(parsers.unit_xyz, Access().angle_grid().unit_xyz);
  EXPECT_EQ(parsers.unit_xyz.size(), 3U * 216 * 288);
}

TEST_F(CalibrationAssembly, FromTablesTheSettingsOfTheSensorsCalibrationHaveNoEffect) {
  config_.lidar_ip = "no address";
  config_.rcx_port = -1;
  config_.iic_device = 0x7F;
  config_.tile_pixels = 0;
  config_.tile_columns = 0;
  config_.force_read_from_lidar = true;
  StartNode(config_, "no/such/directory");
  EXPECT_EQ(NodeLines(start_log_), OpeningNodeLines(config_) + kRetro + kANode.OfTables());
}

// What a default start tells in red although nothing is wrong: it has no such table.
TEST_F(CalibrationAssembly, EveryDefaultStartHasOneRedLine) {
  StartNode(config_);
  const std::string red =
      "\033[31m[LidarNode][A_node] env cogt load failed (default_tables empty), cogt compensation "
      "disabled\033[0m\n";
  const std::size_t at = start_log_.find("\033[31m");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(start_log_.substr(at, red.size()), red);
  EXPECT_EQ(start_log_.find("\033[31m", at + 1), std::string::npos);
}

TEST_F(CalibrationAssembly, AGapInAWidthCurveFailsTheStartWithItsIndex) {
  config_.tables.cogw_b[17] = std::numeric_limits<float>::quiet_NaN();
  ExpectFailure("Invalid cogw filter data: missing curve at peak=17",
                kRetro + CommonLinesBefore("cogw filter"));
}

TEST_F(CalibrationAssembly, AWidthCurveOfTheWrongSizeFailsTheStart) {
  config_.tables.cogw_c.resize(640);
  ExpectFailure("Invalid cogw filter data (expect peak range 0..640)",
                kRetro + CommonLinesBefore("cogw filter"));
}

TEST_F(CalibrationAssembly, RangeCompensationParametersAreTaken) {
  config_.tables.env_cogt = {1.0F, 2.0F, 3.0F, 4.0F};
  config_.env_bias = 7.5F;
  StartNode(config_);
  EXPECT_TRUE(Logged(kANode.Green("env high load succssed (default_tables)") +
                     kANode.Green("env cogt load succssed (default_tables), bias=7.5") +
                     kANode.Green("bloom load succssed (default_tables)")));
  EXPECT_TRUE(Access().env_calib().has_cogt);
  EXPECT_EQ(Access().env_calib().cogt_d, 4.0F);
  EXPECT_EQ(Access().env_calib().bias, 7.5F);
}

TEST_F(CalibrationAssembly, RangeCompensationOfTheWrongSizeFailsTheStart) {
  config_.tables.env_cogt = {1.0F, 2.0F, 3.0F};
  ExpectFailure("Invalid env cogt calib data (expect size 4)",
                kRetro + CommonLinesBefore("env normal"));
}

TEST_F(CalibrationAssembly, MismatchedHighThresholdTablesFailTheStart) {
  config_.tables.high_threshold_cogh_out.pop_back();
  ExpectFailure("Invalid high-threshold cogh mapping data",
                kRetro + CommonLinesBefore("high-threshold map"));
}

TEST_F(CalibrationAssembly, EmptyOptionalTablesSwitchTheirStepsOff) {
  config_.tables.shot_times.clear();
  config_.tables.env_cogh.clear();
  config_.tables.cogw_a.clear();
  config_.tables.high_threshold_cogh_in.clear();
  config_.tables.detect_threshold.clear();
  config_.high_ref_blooming = false;
  config_.shot_noise_enable = false;
  ExpectStart(kRetro + kANode.Red("shot_times load failed (default_tables empty)") +
              kANode.Red("env load failed (default_tables env_cogh empty)") +
              kANode.Red("bloom load failed (high_ref_blooming=false)") +
              kANode.Red("cogw filter load failed (default_tables cogw empty)") +
              kANode.Red("high-threshold map load failed (default_tables empty)") +
              kANode.Red("detect threshold load failed (default_tables empty)"));
  EXPECT_FALSE(Access().HasEnvCalib());
  EXPECT_FALSE(Access().HasCogwFilter());
  EXPECT_FALSE(Access().HasHighThresholdMap());
  EXPECT_FALSE(Access().detect_threshold_valid());
  EXPECT_FALSE(Access().bloom_calib().enable);
}

TEST_F(CalibrationAssembly, BloomTablesAreCopiedOnlyWhenAllFit) {
  StartNode(config_);
  EXPECT_EQ(Access().bloom_calib().psf_same_block[0], 1.24976e-4F);
  EXPECT_EQ(Access().bloom_calib().power_template[5][5], 69.98F);
  EXPECT_EQ(Access().bloom_calib().psf_coeff, 0.8F);

  config_ = TestConfig();
  config_.tables.psf_diagonal_block.pop_back();
  config_.tables.power_template.pop_back();
  config_.blooming_filter_enable = false;
  StartNode(config_);
  EXPECT_EQ(Access().bloom_calib().psf_same_block[0], 0.0F);
  EXPECT_EQ(Access().bloom_calib().power_template[5][5], 0.0F);
  EXPECT_TRUE(Logged(kANode.Green("bloom filter disabled")));
}

TEST_F(CalibrationAssembly, TheHighReflectivityBlockDecidesForItself) {
  config_.high_refl_check.enable = false;
  StartNode(config_);
  EXPECT_FALSE(Access().HasHighReflCheck());
  EXPECT_FALSE(Logged("highrefl check enabled"));
}

}  // namespace
}  // namespace kerul::lidar::testing
