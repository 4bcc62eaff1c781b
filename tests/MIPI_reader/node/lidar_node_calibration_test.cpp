#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "node_fixture.h"

namespace kerul::lidar::testing {
namespace {

const std::string kGreen = "\033[32m[LidarNode][A_node] ";
const std::string kYellow = "\033[33m[LidarNode][A_node] ";
const std::string kRed = "\033[31m[LidarNode][A_node] ";
const std::string kEnd = "\033[0m\n";

class CalibrationAssembly : public NodeFixture {
 protected:
  DefaultConfig config_ = TestConfig();

  std::string StartFailure() {
    try {
      StartNode(config_);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }
  // The node's own lines behind the one that reports the output; the input socket, which the
  // worker opens anew at every look, has lines too.
  std::string CalibrationLog() const {
    std::istringstream lines(start_log_.substr(start_log_.find("] output=SHM")));
    std::string log;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
      if (line.find("[LidarNode]") != std::string::npos) log += line + "\n";
    }
    return log;
  }
  bool Logged(const std::string& line) const { return start_log_.find(line) != std::string::npos; }
};

const std::string kCommonLines =
    kGreen + "shot_times load succssed (default_tables, 48 entries)" + kEnd + kGreen +
    "env normal load succssed (default_tables)" + kEnd + kGreen +
    "env high load succssed (default_tables)" + kEnd + kRed +
    "env cogt load failed (default_tables empty), cogt compensation disabled" + kEnd + kGreen +
    "bloom load succssed (default_tables)" + kEnd + kGreen + "bloom filter enabled" + kEnd +
    kGreen + "cogw filter load succssed (default_tables)" + kEnd + kGreen + "shot_noise enabled" +
    kEnd + kGreen + "high-threshold map load succssed (default_tables)" + kEnd + kGreen +
    "detect threshold load succssed (default_tables, bins=513)" + kEnd;

TEST_F(CalibrationAssembly, AStartFromTablesLogsEachStepInOrder) {
  StartNode(config_);
  EXPECT_EQ(CalibrationLog(), kGreen + "cogh_efficiant load succssed (default_tables)" + kEnd +
                                  kGreen + "highrefl check enabled" + kEnd + kGreen +
                                  "dist calib load succssed (default_tables)" + kEnd + kGreen +
                                  "dist curve high load succssed (embedded)" + kEnd + kGreen +
                                  "retro calib load succssed (default_tables)" + kEnd +
                                  kCommonLines);
}

TEST_F(CalibrationAssembly, WithCalibrationOffOnlyTheCommonTablesAreBuilt) {
  config_.calib_enable = false;
  StartNode(config_);
  EXPECT_EQ(CalibrationLog(), kCommonLines);
  EXPECT_FALSE(Access().HasDistCalib());
  EXPECT_FALSE(Access().HasRetroCalib());
  EXPECT_FALSE(Access().HasHighReflCheck());
  EXPECT_TRUE(Access().HasEnvCalib());
  EXPECT_TRUE(Access().HasHighThresholdMap());
}

TEST_F(CalibrationAssembly, TheDefaultTablesAloneFailAtTheRangeCalibration) {
  config_.tables.dist_curve.clear();
  config_.tables.dist_offset.clear();
  EXPECT_EQ(StartFailure(), "Invalid dist calib data (expect curve=512, offset=288*288)");
  EXPECT_TRUE(Logged("[INFO] dist_curve.size()=0\n[INFO] dist_offset.size()=0\n" + kRed +
                     "dist calib load failed: Invalid dist calib data (expect curve=512, "
                     "offset=288*288)" +
                     kEnd));
}

TEST_F(CalibrationAssembly, AHighCurveOfTheWrongSizeFailsTheStart) {
  config_.tables.dist_curve_high.assign(100, 0.0F);
  EXPECT_EQ(StartFailure(), "Invalid dist curve high vector (expect 512, got 100)");
}

TEST_F(CalibrationAssembly, WithoutAHighCurveTheLowOneServes) {
  config_.tables.dist_curve_high.clear();
  StartNode(config_);
  EXPECT_TRUE(
      Logged(kYellow + "dist curve high not configured, high-threshold uses low curve" + kEnd));
}

TEST_F(CalibrationAssembly, AReflectivityTableOfTheWrongSizeFailsTheStart) {
  config_.tables.retro_scale.resize(5);
  EXPECT_EQ(StartFailure(), "Invalid retro calib data (expect curve=512, scale=288*288)");
  EXPECT_TRUE(Logged("[INFO] retro_curve.size()=512\n[INFO] retro_scale.size()=5\n" + kRed +
                     "retro calib load failed: Invalid retro calib data (expect curve=512, "
                     "scale=288*288)" +
                     kEnd));
}

TEST_F(CalibrationAssembly, OptionalTablesOfTheWrongSizeAreReportedAndLeftOut) {
  config_.tables.cogh_efficiant.resize(599);
  config_.tables.retro_filter.assign(30, 1.0F);
  StartNode(config_);
  EXPECT_TRUE(Logged(kRed + "cogh_efficiant load failed (default_tables)" + kEnd));
  EXPECT_TRUE(Logged(kRed + "retro_filter load failed (default_tables)" + kEnd));
  EXPECT_FALSE(Access().retro_calib().cogh_efficiant_valid);
  EXPECT_FALSE(Access().retro_calib().retro_filter_valid);
}

TEST_F(CalibrationAssembly, AReflectivityFloorOfTheRightSizeIsTaken) {
  config_.tables.retro_filter.assign(31, 1.0F);
  StartNode(config_);
  EXPECT_TRUE(Logged(kGreen + "retro_filter load succssed (default_tables)" + kEnd));
  EXPECT_TRUE(Access().retro_calib().retro_filter_valid);
}

TEST_F(CalibrationAssembly, ABrokenAngleTableIsReportedAndTheStartGoesOn) {
  config_.tables.angle_dat.assign(77, 0);
  StartNode(config_);
  EXPECT_TRUE(Logged(kRed +
                     "angle calib load failed (default_tables): 角度标定内存块长度不足 "
                     "(need 78)" +
                     kEnd));
  EXPECT_FALSE(Access().angle_grid().valid);
}

TEST_F(CalibrationAssembly, AGapInAWidthCurveFailsTheStartWithItsIndex) {
  config_.tables.cogw_b[17] = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(StartFailure(), "Invalid cogw filter data: missing curve at peak=17");
}

TEST_F(CalibrationAssembly, AWidthCurveOfTheWrongSizeFailsTheStart) {
  config_.tables.cogw_c.resize(640);
  EXPECT_EQ(StartFailure(), "Invalid cogw filter data (expect peak range 0..640)");
}

TEST_F(CalibrationAssembly, RangeCompensationParametersAreTaken) {
  config_.tables.env_cogt = {1.0F, 2.0F, 3.0F, 4.0F};
  StartNode(config_);
  EXPECT_TRUE(Logged(kGreen + "env cogt load succssed (default_tables), bias=15" + kEnd));
  EXPECT_TRUE(Access().env_calib().has_cogt);
  EXPECT_EQ(Access().env_calib().cogt_d, 4.0F);
}

TEST_F(CalibrationAssembly, RangeCompensationOfTheWrongSizeFailsTheStart) {
  config_.tables.env_cogt = {1.0F, 2.0F, 3.0F};
  EXPECT_EQ(StartFailure(), "Invalid env cogt calib data (expect size 4)");
}

TEST_F(CalibrationAssembly, MismatchedHighThresholdTablesFailTheStart) {
  config_.tables.high_threshold_cogh_out.pop_back();
  EXPECT_EQ(StartFailure(), "Invalid high-threshold cogh mapping data");
}

TEST_F(CalibrationAssembly, EmptyOptionalTablesSwitchTheirStepsOff) {
  config_.tables.shot_times.clear();
  config_.tables.env_cogh.clear();
  config_.tables.cogw_a.clear();
  config_.tables.high_threshold_cogh_in.clear();
  config_.tables.detect_threshold.clear();
  config_.high_ref_blooming = false;
  config_.shot_noise_enable = false;
  StartNode(config_);
  const std::string log = CalibrationLog();
  const std::string expected = kRed + "shot_times load failed (default_tables empty)" + kEnd +
                               kRed + "env load failed (default_tables env_cogh empty)" + kEnd +
                               kRed + "bloom load failed (high_ref_blooming=false)" + kEnd + kRed +
                               "cogw filter load failed (default_tables cogw empty)" + kEnd + kRed +
                               "high-threshold map load failed (default_tables empty)" + kEnd +
                               kRed + "detect threshold load failed (default_tables empty)" + kEnd;
  ASSERT_GE(log.size(), expected.size());
  EXPECT_EQ(log.substr(log.size() - expected.size()), expected);
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
  EXPECT_TRUE(Logged(kGreen + "bloom filter disabled" + kEnd));
}

TEST_F(CalibrationAssembly, TheHighReflectivityBlockDecidesForItself) {
  config_.high_refl_check.enable = false;
  StartNode(config_);
  EXPECT_FALSE(Access().HasHighReflCheck());
  EXPECT_FALSE(Logged("highrefl check enabled"));
}

}  // namespace
}  // namespace kerul::lidar::testing
