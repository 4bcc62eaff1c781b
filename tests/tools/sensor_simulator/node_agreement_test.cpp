// The node's own decoding and calibration of a simulated stream, compared with the simulator's
// decoder, which was written apart, and with the ground truth.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/parser/lidar_parser.h"
#include "calibration/para2_lidar_calib.h"
#include "config/default_config.h"
#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/raw_packet.h"
#include "sensor_simulator/scenes.h"
#include "tools/sensor_simulator/echo_check.h"

namespace kerul::lidar::simulator {
namespace {

const DefaultConfig& Config() { return default_config::kConfig; }

LidarParserQDV11 DefaultParser() {
  LidarParserQDV11 parser;
  const DefaultTables& tables = Config().tables;
  parser.cogw_high_mode = Config().cogw_high_mode;
  parser.clip_side_peaks = Config().clip_side_peaks;
  parser.baseline_samples = Config().baseline_samples;
  parser.baseline_rise_gate = Config().baseline_rise_gate;
  parser.baseline_rise_limit = Config().baseline_rise_limit;
  parser.shot_times = tables.shot_times;
  parser.detect_threshold_bins = tables.detect_threshold;
  parser.cogw_filter = std::make_shared<CogwFilter>(tables.cogw_a, tables.cogw_b, tables.cogw_c);
  return parser;
}

// The node's calibration objects, from the sensor's blobs.
struct NodeCalibration {
  Para2LidarCalib para2;
  EnvCalib environment;
  DistCalib range;
  HighThresholdMap high_map;
  RetroCalib retro;

  static Para2LidarCalib Unpack(const CalibrationBlobs& blobs) {
    Para2LidarCalib calib{};
    para2_lidar_detail::VerifyHeadCrc(blobs.head, blobs.main);
    para2_lidar_detail::UnpackPara2Main(blobs.main, 36, 48, calib);
    return calib;
  }
  explicit NodeCalibration(const CalibrationBlobs& blobs)
      : para2(Unpack(blobs)),
        environment(Config().tables.env_cogh, Config().tables.env_cogh_high, {}, Config().env_bias),
        range(para2.dist_curve, para2.dist_offset, para2.dist_curve_high),
        high_map(Config().tables.high_threshold_cogh_in, Config().tables.high_threshold_cogh_out),
        retro(para2.retro_curve, para2.retro_scale, Config().high_refl_check,
              Config().tables.cogh_efficiant, {}) {}

  void Apply(std::vector<LidarPoint>& points) const {
    CompensateEnvironment(environment, points);
    CalibrateRange(range, points);
    MapHighThresholdHeights(high_map, points);
    CheckHighReflectivity(Config().high_refl_check, points);
    retro.calib_points(points);
  }
};

// A frame through the node's parser and calibration, row-major.
std::vector<LidarPoint> NodePoints(const SimulatedFrame& frame, const CalibrationBlobs& blobs) {
  LidarPoint::echo_num = 2;
  LidarParserQDV11 parser = DefaultParser();
  const NodeCalibration calibration(blobs);
  std::vector<LidarPoint> frame_points(static_cast<std::size_t>(kPixels));
  std::vector<LidarPoint> points;
  UdpPacket packet{};
  int expected_index = 0;
  for (const RawPacket& raw : EncodeFrame(frame)) {
    std::memcpy(packet.buffer, raw.data(), raw.size());
    packet.length = static_cast<std::uint16_t>(raw.size());
    int frame_id = -1;
    EXPECT_EQ(parser.ParsePacket(packet, points, frame_id, 2), expected_index);
    ++expected_index;
    calibration.Apply(points);
    for (const LidarPoint& point : points) {
      frame_points[static_cast<std::size_t>(PixelIndex(point.row, point.col))] = point;
    }
  }
  return frame_points;
}

class NodeAgreement : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    FrameSimulator simulator(MakeScene(GetParam()));
    frame_ = simulator.Simulate(2);
    calibration_ = Calibrate(simulator.options().pulse, DefaultSensorTables(), simulator.traits());
    points_ = NodePoints(frame_, MakeBlobs(LidarId(1), simulator.options().camera, calibration_));
  }
  const LidarEcho& NodeEcho(int index, int echo) const {
    return points_[static_cast<std::size_t>(index)].echoes[echo];
  }
  const EchoTruth& Truth(int index, int echo) const {
    return frame_.truth[static_cast<std::size_t>(index)][static_cast<std::size_t>(echo)];
  }
  bool IsSent(int index, int echo) const {
    return frame_.pixels[static_cast<std::size_t>(index)]
               .peak_addr[static_cast<std::size_t>(echo)] <= 1000;
  }

  SimulatedFrame frame_;
  SensorCalibration calibration_;
  std::vector<LidarPoint> points_;
};

// Single against double precision: thresholds on a knife's edge may fall to either side, the rest
// must agree to a tenth of a millimetre and to a thousandth of the reflectivity.
TEST_P(NodeAgreement, NodeAndSimulatorDecodeTheSameRangesAndReflectivities) {
  int compared = 0;
  int differing = 0;
  for (int index = 0; index < kPixels; ++index) {
    for (int echo = 0; echo < kEchoes; ++echo) {
      const LidarEcho& node = NodeEcho(index, echo);
      if (!IsSent(index, echo)) {
        ASSERT_EQ(node.dist_raw, 0.0F);
        continue;
      }
      const CheckedEcho own = CheckEcho(frame_, index / kCols, index % kCols, echo, calibration_,
                                        DefaultSensorTables());
      const bool own_valid = own.pulse.found && !own.pulse.too_wide && own.range_m > 0.0;
      ++compared;
      bool same = own_valid == (node.dist_raw > 0.004F);
      if (same && own_valid) {
        same = std::abs(static_cast<double>(node.dist_raw) - own.range_m) < 1e-4;
        if (!node.highRefl && own.range_m > 0.3) {
          const double expected = std::min(own.reflectivity, 255.0);
          same = same && std::abs(static_cast<double>(node.refl_raw) - expected) < 1e-3 * expected;
        }
      }
      if (!same) ++differing;
    }
  }
  EXPECT_GT(compared, 90000);
  EXPECT_LT(differing, compared / 2000);
}

TEST_P(NodeAgreement, TheNodeFindsTheTrueRanges) {
  std::vector<double> errors;
  for (int index = 0; index < kPixels; ++index) {
    for (int echo = 0; echo < kEchoes; ++echo) {
      const EchoTruth& truth = Truth(index, echo);
      const LidarEcho& node = NodeEcho(index, echo);
      if (truth.sent == 0 || truth.cos_incidence == 0.0F || truth.kind == ReturnKind::kRetro)
        continue;
      if (!(node.dist_raw > 0.0F) || !node.detect_pass) continue;
      errors.push_back(static_cast<double>(node.dist_raw) - static_cast<double>(truth.range_m));
    }
  }
  ASSERT_GT(errors.size(), 10000U);
  std::sort(errors.begin(), errors.end());
  EXPECT_NEAR(errors[errors.size() / 2], 0.0, 0.004);
  // Photon noise of weak echoes.
  EXPECT_GT(errors[errors.size() / 20], -0.07);
  EXPECT_LT(errors[errors.size() * 19 / 20], 0.07);
}

INSTANTIATE_TEST_SUITE_P(Scenes, NodeAgreement, ::testing::Values("street", "retro", "noise"),
                         [](const auto& scene) { return std::string(scene.param); });

TEST(NodeHighReflectivity, RetroReflectorsBeyondSevenMetresAreMarkedAndNothingElse) {
  FrameSimulator simulator(MakeScene("retro"));
  const SimulatedFrame frame = simulator.Simulate(2);
  const std::vector<LidarPoint> points = NodePoints(frame, MakeBlobs(simulator.options()));
  int retro = 0;
  int marked = 0;
  int wrongly_marked = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const EchoTruth& truth = frame.truth[i][0];
    const bool is_retro = truth.kind == ReturnKind::kRetro;
    if (is_retro && truth.range_m > 7.5F) {
      ++retro;
      if (points[i].echoes[0].highRefl) ++marked;
    }
    if (!is_retro && points[i].echoes[0].highRefl) ++wrongly_marked;
  }
  EXPECT_GT(retro, 400);
  EXPECT_GE(marked, retro * 98 / 100);
  EXPECT_LT(wrongly_marked, 20);
}

}  // namespace
}  // namespace kerul::lidar::simulator
