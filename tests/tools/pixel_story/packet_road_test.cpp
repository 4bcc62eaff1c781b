#include "pixel_story/packet_road.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "MIPI_reader/parser/packet_context.h"
#include "pixel_story/packet_story.h"
#include "pixel_story/watched_node.h"
#include "sensor_simulator/scenes.h"
#include "story_fixture.h"
#include "support/point_compare.h"
#include "support/random_raw_packets.h"

namespace kerul::lidar::story {
namespace {

using testing::EchoDifference;
using testing::PointDifference;
using testing::SameValue;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kFrames = 1;
constexpr std::size_t kToldPackets = 8;  // every so many packets have their sentences made
#else
constexpr int kFrames = 2;
constexpr std::size_t kToldPackets = 1;
#endif

// The node's own parser and calibration, and the walk beside them.
class Road {
 public:
  explicit Road(const DefaultConfig& config = default_config::kConfig)
      : node_(config, CalibrationDir()),
        parts_(node_.Parts()),
        steps_(StepsInForce(parts_)),
        parser_(parts_.parser) {
    LidarPoint::echo_num = parts_.config.echo_num;
  }

  const CalibrationSteps& Steps() const { return steps_; }

  // Calls visit(road, decoded, calibrated) for the packet's nine pixels.
  template <typename Visit>
  void Walk(const UdpPacket& packet, Visit&& visit) {
    const int echoes = parts_.config.echo_num;
    int frame_id = 0;
    ASSERT_GE(parser_.ParsePacket(packet, decoded_, frame_id, echoes), 0);
    calibrated_ = decoded_;
    if (parts_.config.calib_enable) parts_.calibrator.Calibrate(calibrated_);
    const PacketContext context = ContextOf(parser_, ReadRawHeader(packet.buffer), echoes);
    for (std::size_t block = 0; block < decoded_.size(); ++block) {
      visit(WalkPacketRoad(context, packet.buffer, static_cast<int>(block), steps_),
            decoded_[block], calibrated_[block]);
    }
  }

  // How many of the stream's pixels were compared; the first difference fails.
  int Compare(const Stream& stream) {
    int compared = 0;
    std::string difference;
    for (const UdpPacket& packet : stream) {
      Walk(packet,
           [&](const PacketRoad& road, const LidarPoint& decoded, const LidarPoint& calibrated) {
             if (difference.empty()) difference = PointDifference(road.decoded, decoded);
             if (difference.empty()) difference = PointDifference(road.calibrated, calibrated);
             ++compared;
           });
      if (!difference.empty()) break;
    }
    EXPECT_EQ(difference, "");
    return compared;
  }

 private:
  WatchedNode node_;
  NodeParts parts_;
  CalibrationSteps steps_;
  LidarParserQDV11 parser_;
  std::vector<LidarPoint> decoded_;
  std::vector<LidarPoint> calibrated_;
};

class SceneRoad : public ::testing::TestWithParam<std::string> {};

TEST_P(SceneRoad, EndsInTheRecordsOfParserAndCalibration) {
  Road road;
  EXPECT_EQ(road.Compare(SimulatedFrames(GetParam(), kFrames)), kFrames * 6912 * 9);
}

INSTANTIATE_TEST_SUITE_P(All, SceneRoad, ::testing::ValuesIn(simulator::SceneNames()),
                         [](const auto& scene) { return scene.param; });

// Broad settings and packets of no sensor: addresses after the last bin, noise after the tables, a
// high width for all.
TEST(PacketRoad, EndsInTheRecordsOfParserAndCalibrationForRandomPackets) {
  testing::RandomSource random(7);
  Stream stream;
  for (int i = 0; i < 3000; ++i) stream.push_back(testing::RandomRawPacket(random));
  DefaultConfig config = default_config::kConfig;
  Road as_delivered(config);
  EXPECT_EQ(as_delivered.Compare(stream), 27000);
  config.cogw_high_mode = 1;
  config.calib_enable = false;
  Road uncalibrated(config);
  EXPECT_EQ(uncalibrated.Compare(stream), 27000);
}

// Null when the story has no such value.
const NamedValue* FindValue(const std::vector<Step>& steps, const char* step_name,
                            const char* name) {
  for (const Step& step : steps) {
    if (step.name != step_name) continue;
    for (const NamedValue& value : step.values) {
      if (value.name == name) return &value;
    }
  }
  return nullptr;
}

// What the story says of the record, the values in which they differ.
std::string Untrue(const std::vector<Step>& steps, const LidarPoint& decoded,
                   const LidarPoint& calibrated, int slot) {
  const LidarEcho& before = decoded.echoes[slot];
  const LidarEcho& after = calibrated.echoes[slot];
  std::string untrue;
  const auto hold = [&](const char* name, bool same) {
    if (!same) untrue += std::string(name) + ' ';
  };
  const auto hold_number = [&](const char* step, const char* name, float value) {
    const NamedValue* told = FindValue(steps, step, name);
    hold(name, told != nullptr && SameValue(std::get<float>(told->value), value));
  };
  const auto hold_flag = [&](const char* name, bool value) {
    const NamedValue* told = FindValue(steps, "high_reflectivity", name);
    hold(name, told != nullptr && std::get<std::int64_t>(told->value) == (value ? 1 : 0));
  };
  hold_number("raw_range", "raw_range", before.dist_raw);
  hold_number("reflectivity", "range", after.dist_raw);
  hold_number("reflectivity", "reflectivity", after.refl_raw);
  hold_number("reflectivity", "power", after.power);
  hold_number("high_threshold", "cogh", after.cogh);
  hold_flag("high_reflectivity", after.highRefl);
  hold_flag("after_pulse", after.afterPulse);
  if (FindValue(steps, "thresholds", "peak_ratio") != nullptr) {
    hold_number("thresholds", "peak_ratio", before.peak_ratio);
    hold_number("thresholds", "detection_level", decoded.detect_threshold);
    hold_number("baseline", "noise", before.noise);
    hold_number("baseline", "noise_append", before.change_noise_noise_append);
  } else {
    hold("a window", before.peak_ratio == 0.0F);
  }
  if (FindValue(steps, "edges", "cogw") != nullptr) {
    hold_number("edges", "cogw", before.cogw);
    hold_number("edges", "cogw_high", before.cogw_high);
    hold_number("centre", "cogh", before.cogh);
    hold_number("centre", "peak", before.peak);
  } else {
    hold("a pulse", before.dist_raw == 0.0F && before.cogw == 0.0F);
  }
  return untrue;
}

// The decisions themselves, against the fields that they decided.
std::string Contradiction(const PacketRoad& road, const LidarPoint& decoded, int slot) {
  const auto at = static_cast<std::size_t>(slot);
  const EchoDecisions& told = road.echoes[at];
  const CalibrationDecisions& calibration = road.calibration[at];
  const LidarEcho& echo = decoded.echoes[slot];
  if (told.rise && !SameValue(told.rise->noise_add, echo.change_noise_noise_append)) return "rise";
  if (told.low_edges && !SameValue(told.low_edges->to - told.low_edges->from, echo.cogw)) {
    return "low edges";
  }
  if (told.high_edges && !SameValue(told.high_edges->to - told.high_edges->from, echo.cogw_high)) {
    return "high edges";
  }
  const bool replaced =
      told.wide_pulse && told.wide_pulse->fate != echo_computation::WidePulseFate::kKept;
  if (told.raw_range && !replaced && !SameValue(told.raw_range->range, echo.dist_raw)) {
    return "raw range";
  }
  if (calibration.gain &&
      !SameValue(calibration.gain->height, calibration.after_environment.cogh)) {
    return "gain";
  }
  if (calibration.range && !SameValue(calibration.range->range, calibration.after_range.dist_raw)) {
    return "range";
  }
  if (calibration.mapping && !SameValue(calibration.mapping->mapped, calibration.after_map.cogh)) {
    return "mapping";
  }
  return {};
}

TEST_P(SceneRoad, TellsTheValuesOfTheRecords) {
  Road road;
  int told = 0;
  int ranged = 0;
  std::string untrue;
  const Stream stream = SimulatedFrames(GetParam(), 1);
  for (std::size_t i = 0; i < stream.size(); i += kToldPackets) {
    road.Walk(stream[i], [&](const PacketRoad& walked, const LidarPoint& decoded,
                             const LidarPoint& calibrated) {
      for (int slot = 0; slot < 2 && untrue.empty(); ++slot) {
        untrue = Contradiction(walked, decoded, slot);
        const std::vector<Step> steps = PacketSteps(walked, road.Steps(), slot);
        untrue += Untrue(steps, decoded, calibrated, slot);
        ++told;
        ranged += calibrated.echoes[slot].dist_raw > 0.0F ? 1 : 0;
      }
    });
    if (!untrue.empty()) break;
  }
  EXPECT_EQ(untrue, "");
  EXPECT_EQ(told, 2 * 62208 / static_cast<int>(kToldPackets));
  EXPECT_GT(ranged, GetParam() == "empty" ? -1 : 1000);
}

TEST(SameRecord, SeesEachKindOfFieldAndTakesEveryNanForTheSame) {
  const LidarPoint point;
  EXPECT_TRUE(SameRecord(point, point));
  const auto differs = [&point](auto&& change) {
    LidarPoint other = point;
    change(other);
    return !SameRecord(point, other);
  };
  EXPECT_TRUE(differs([](LidarPoint& p) { p.col = 1; }));
  EXPECT_TRUE(differs([](LidarPoint& p) { p.detect_threshold = 1.0F; }));
  EXPECT_TRUE(differs([](LidarPoint& p) { p.echoes[0].dist_raw = -0.0F; }));
  EXPECT_TRUE(differs([](LidarPoint& p) { p.echoes[1].power = 1.0F; }));
  EXPECT_TRUE(differs([](LidarPoint& p) { p.echoes[1].afterPulse = true; }));
  EXPECT_TRUE(differs([](LidarPoint& p) { p.echoes[0].cogw_flag = 2; }));
  EXPECT_TRUE(differs([](LidarPoint& p) { p.echoes[0].bins[16] = 1; }));
  LidarPoint nan = point;
  LidarPoint other_nan = point;
  nan.echoes[0].cogh = std::nanf("1");
  other_nan.echoes[0].cogh = -std::nanf("2");
  EXPECT_TRUE(SameRecord(nan, other_nan));
}

}  // namespace
}  // namespace kerul::lidar::story
