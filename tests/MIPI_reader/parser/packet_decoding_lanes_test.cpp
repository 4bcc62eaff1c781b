// The vector forms of the packet decoding against the scalar form, bit for bit, over random
// settings, windows and earlier contents of the records.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "MIPI_reader/parser/lidar_parser.h"
#include "MIPI_reader/parser/packet_decoding.h"
#include "decode_blocks.h"
#include "support/kernel_forms.h"
#include "support/point_compare.h"
#include "support/random_raw_packets.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Windows that random ones hit seldom: ties, plateaus, runs at the ends, nothing, saturation.
BlockSamples::value_type SpecialSample(int style, int i, int level) {
  switch (style) {
    case 0:
      return 0;
    case 1:
      return 4095;
    case 2:
      return static_cast<std::uint16_t>(i % 2 == 0 ? level : 0);  // equal maxima, one sample each
    case 3:
      return static_cast<std::uint16_t>(i == 0 || i == 16 ? level : level / 8);
    case 4:
      return static_cast<std::uint16_t>(i >= 7 && i <= 9 ? level : 0);
    case 5:
      return static_cast<std::uint16_t>(i * level / 17);
    case 6:
      return static_cast<std::uint16_t>(i == 8 ? level : 0);
    case 7:
      return static_cast<std::uint16_t>(i < 6 ? level / 2 : level);
    default:
      return static_cast<std::uint16_t>(level);  // flat: nothing above a fitting baseline
  }
}

void PutSpecialWindow(RandomSource& random, UdpPacket& packet) {
  BlockSamples samples{};
  for (std::uint16_t& sample : samples) sample = static_cast<std::uint16_t>(random.Int(0, 4095));
  const int noise = random.Int(0, 2000);
  samples[1] = static_cast<std::uint16_t>(random.Int(999, 1001));
  samples[2] = static_cast<std::uint16_t>(random.Int(999, 1001));
  samples[3] = static_cast<std::uint16_t>(random.Int(0, 4095));
  samples[4] = 0;
  samples[5] = static_cast<std::uint16_t>(noise);
  for (const int first : {10, 29}) {
    const int style = random.Int(0, 8);
    // Around three-bin sums that meet the baseline and the threshold exactly.
    const int level = random.OneIn(2) ? noise * 5 / 64 + random.Int(0, 2) : random.Int(0, 4095);
    for (int i = 0; i < kWindowSamples; ++i) {
      samples[static_cast<std::size_t>(first + i)] = SpecialSample(style, i, level);
    }
  }
  SetBlock(packet, random.Int(0, 8), samples);
}

UdpPacket TestPacket(RandomSource& random) {
  UdpPacket packet = RandomRawPacket(random);
  for (int i = random.Int(0, 3); i > 0; --i) PutSpecialWindow(random, packet);
  if (random.OneIn(10)) {  // hardly any window
    for (int block = 0; block < 9; ++block) {
      if (!random.OneIn(10)) SetBlock(packet, block, EmptyPixel(random.Int(0, 431)));
    }
  }
  return packet;
}

// Points with something in every field, as an earlier packet and the calibration leave them.
std::vector<LidarPoint> UsedPoints(RandomSource& random) {
  std::vector<LidarPoint> points(9);
  for (LidarPoint& point : points) {
    point.row = random.Int(0, 300);
    point.pixel_word22 = point.pixel_word11 = point.shot_times = random.Float(0.0F, 9.0F);
    for (LidarEcho& echo : point.echoes) {
      echo.dist_raw = echo.refl_raw = echo.dist_proc = echo.refl_proc = random.Float(1.0F, 9.0F);
      echo.cogh = echo.cogw = echo.cogw_high = echo.waveform_rms_ratio = random.Float(1.0F, 9.0F);
      echo.conf = echo.echosum = echo.totsum = echo.peak = echo.peak_ratio = echo.power = 3.0F;
      echo.noise = echo.baseline = echo.change_noise_noise_append = echo.timming_th = 4.0F;
      echo.ground_refl_scale = random.Float(0.0F, 2.0F);
      echo.echo_flags = 0xFF;
      echo.cogw_flag = -1;
      echo.peak_addr = 77;
      echo.highRefl = echo.highReflBlooming = echo.afterPulse = echo.ground = true;
      echo.fill_point = echo.shot_noise_point = echo.shot_noise_group_point = true;
      echo.debug_flag = random.OneIn(2);
      echo.detect_pass = random.OneIn(2);
      echo.bins.fill(0xABCD);
    }
  }
  return points;
}

class PacketLanes : public FormsTest {
 protected:
  ~PacketLanes() override { LidarPoint::echo_num = 1; }

  // Other settings with each seed.
  void SetUpParser(unsigned seed) {
    random = RandomSource(seed);
    parser = LidarParserQDV11();
    LidarPoint::echo_num = random.OneIn(4) ? 1 : 2;
    parser.keep_bins = random.OneIn(3);
    parser.clip_side_peaks = !random.OneIn(3);
    parser.cogw_high_mode = static_cast<std::uint16_t>(random.OneIn(2) ? 2 : random.Int(0, 3));
    parser.baseline_samples = random.OneIn(2) ? 4 : random.Int(1, 20);
    parser.baseline_rise_gate = random.OneIn(3) ? 0.0F : random.Float(0.0F, 600.0F);
    parser.baseline_rise_limit = random.Float(0.0F, 60.0F);
    if (!random.OneIn(8)) parser.shot_times = random.Table(48, 40.0F, 432.0F);
    for (int i = random.OneIn(8) ? random.Int(0, 3) : 513; i > 0; --i) {
      parser.detect_threshold_bins.push_back(static_cast<std::uint16_t>(random.Int(0, 900)));
    }
    if (!random.OneIn(8)) {
      parser.cogw_filter =
          std::make_shared<CogwFilter>(random.Table(641, 2.0F, 5.0F), random.Table(641, 2.0F, 5.0F),
                                       random.Table(641, 1.0F, 5.0F));
    }
  }

  template <class Body>
  void ForEachSeed(const Body& body) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
      SCOPED_TRACE(seed);
      SetUpParser(seed);
      body();
    }
  }

  // Values that no sound configuration has.
  void BreakSettings() {
    constexpr std::array<float, 9> kWild = {0.0F, -0.0F,  -160.0F, kInf,  -kInf,
                                            kNaN, 1e-40F, 3e38F,   -1e30F};
    const auto wild = [&] { return kWild[static_cast<std::size_t>(random.Int(0, 8))]; };
    for (float& shots : parser.shot_times) {
      if (random.OneIn(2)) shots = wild();
    }
    parser.baseline_samples = random.Int(-2, 40);
    if (random.OneIn(2)) parser.baseline_rise_gate = wild();
    if (random.OneIn(2)) parser.baseline_rise_limit = wild();
    if (!parser.cogw_filter) return;
    std::array<std::vector<float>, 3> curves = {parser.cogw_filter->cogw_low_curve,
                                                parser.cogw_filter->cogw_gate_curve,
                                                parser.cogw_filter->cogw_high_curve};
    for (std::vector<float>& curve : curves) {
      for (float& width : curve) {
        const float other = wild();
        // A filter takes no NaN.
        if (random.OneIn(3) && !std::isnan(other)) width = other;
      }
    }
    parser.cogw_filter = std::make_shared<CogwFilter>(curves[0], curves[1], curves[2]);
  }

  int Parse(const UdpPacket& packet, std::vector<LidarPoint>& points, int echo_count) {
    int frame_id = -1;
    return parser.ParsePacket(packet, points, frame_id, echo_count);
  }
  int ParseInScalarForm(const UdpPacket& packet, std::vector<LidarPoint>& points, int echo_count) {
    const ForcedForm scalar(InstructionSet::kScalar);
    return Parse(packet, points, echo_count);
  }

  // Parses the same packet into the same used points by both forms.
  void CompareWithScalar(int packets, int max_echo_count) {
    int echoes = 0;
    for (int i = 0; i < packets; ++i) {
      const UdpPacket packet = TestPacket(random);
      std::vector<LidarPoint> points = UsedPoints(random);
      std::vector<LidarPoint> expected = points;
      const int echo_count = random.OneIn(10) ? random.Int(-1, max_echo_count) : max_echo_count;
      const int place = Parse(packet, points, echo_count);
      ASSERT_EQ(place, ParseInScalarForm(packet, expected, echo_count));
      for (std::size_t k = 0; k < expected.size(); ++k) {
        ASSERT_EQ(PointDifference(points[k], expected[k]), "") << "packet " << i << " point " << k;
        echoes += expected[k].echoes[0].dist_raw != 0.0F ? 1 : 0;
        echoes += expected[k].echoes[1].dist_raw != 0.0F ? 1 : 0;
      }
    }
    EXPECT_GT(echoes, packets);
  }

  RandomSource random{1};
  LidarParserQDV11 parser;
};
RUN_IN_EVERY_VECTOR_FORM(PacketLanes);

TEST_P(PacketLanes, RandomPacketsGiveTheRecordsOfTheScalarForm) {
  ForEachSeed([&] { CompareWithScalar(300, LidarPoint::echo_num); });
}

TEST_P(PacketLanes, WildSettingsGiveTheRecordsOfTheScalarForm) {
  ForEachSeed([&] {
    BreakSettings();
    CompareWithScalar(300, LidarPoint::echo_num);
  });
}

TEST_P(PacketLanes, ASlotThatNoResetTouchesKeepsItsEarlierFields) {
  ForEachSeed([&] {
    LidarPoint::echo_num = 1;
    CompareWithScalar(30, 2);
  });
}

// The peak, divided by the shot ratio, meets the middle between two curve entries and its
// neighbours on both sides; the low curve's flag shows which entry was read.
TEST_P(PacketLanes, CurveEntriesAreRoundedHalfAwayFromZero) {
  LidarPoint::echo_num = 2;
  std::vector<float> low(641);
  for (std::size_t i = 0; i < 641; i += 2) low[i] = 100.0F;
  parser.cogw_filter =
      std::make_shared<CogwFilter>(low, std::vector<float>(641), std::vector<float>(641));
  parser.cogw_high_mode = 0;
  parser.baseline_samples = 4;  // all zeros: no adaptation
  parser.detect_threshold_bins = {1, 1};
  parser.keep_bins = false;
  int compared = 0;
  for (const float ratio : {0.5F, 2.0F, 1.0F, 0.1F, 1.9999999F, 2.0000002F}) {
    parser.shot_times.assign(256, 160.0F * ratio);
    for (int peak = 1; peak < 1400; ++peak) {
      UdpPacket packet = RawPacket();
      BlockSamples samples = EmptyPixel(0);
      samples[1] = 100;
      samples[18] = static_cast<std::uint16_t>(peak);
      for (int block = 0; block < 9; ++block) SetBlock(packet, block, samples);
      std::vector<LidarPoint> points;
      std::vector<LidarPoint> expected;
      Parse(packet, points, 1);
      ParseInScalarForm(packet, expected, 1);
      ASSERT_EQ(PointDifference(points[8], expected[8]), "")
          << "peak " << peak << " ratio " << ratio;
      const float normalised = static_cast<float>(peak) / (parser.shot_times[0] / 160.0F);
      const long entry = std::min(std::lroundf(normalised), 640L);
      ASSERT_EQ(points[3].echoes[0].cogw_flag, entry % 2 == 0 ? 1 : 0)
          << "peak " << peak << " ratio " << ratio;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 6 * 1399);
}

// For the address sanitizer: the blocks fill their allocation.
TEST_P(PacketLanes, NothingOutsideTheBlocksIsRead) {
  ForEachSeed([&] {
    const UdpPacket packet = TestPacket(random);
    const std::vector<std::uint8_t> blocks(packet.buffer + 20, packet.buffer + 20 + 648);
    const std::vector<std::uint16_t> bins(static_cast<std::size_t>(random.Int(1, 3)), 50);
    const PacketContext context{.settings = {.keep_bins = true},
                                .threshold_bins = bins.data(),
                                .threshold_count = static_cast<int>(bins.size()),
                                .shot_times = 160.0F,
                                .shot_ratio = 1.0F,
                                .first_row = 0,
                                .first_col = 0,
                                .echo_count = LidarPoint::echo_num};
    std::vector<LidarPoint> points(9);
    std::vector<LidarPoint> expected(9);
    const int pixel_id = DecodeBlocks(context, blocks.data(), expected.data());
    EXPECT_EQ(DecodeBlocksInForce(context, blocks.data(), points.data()), pixel_id);
    for (std::size_t k = 0; k < 9; ++k) EXPECT_EQ(PointDifference(points[k], expected[k]), "");
  });
}

}  // namespace
}  // namespace kerul::lidar::testing
