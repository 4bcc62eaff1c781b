#include "MIPI_reader/parser/lidar_parser.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <vector>

#include "support/allocation_counter.h"
#include "support/kernel_forms.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {
namespace {

struct ParsedPacket {
  LidarParserQDV11 parser;
  std::vector<LidarPoint> points;
  int frame_id = -7;

  ParsedPacket() { LidarPoint::echo_num = 2; }
  ~ParsedPacket() { LidarPoint::echo_num = 1; }

  int Parse(const UdpPacket& packet, int echo_count = 2) {
    return parser.ParsePacket(packet, points, frame_id, echo_count);
  }
};

class LidarParserTest : public ::testing::Test, protected ParsedPacket {};

class PacketDecoding : public FormsTest, protected ParsedPacket {};
RUN_IN_EVERY_FORM(PacketDecoding);

TEST_F(LidarParserTest, TheBaseClassHasItsOwnGeometry) {
  LidarParser base;
  EXPECT_EQ(base.GetName(), "NONE");
  EXPECT_EQ(base.GetNPacketPerFrame(), 360);
  EXPECT_EQ(base.GetNPower(), 1);
  EXPECT_EQ(base.Height(), 128);
  EXPECT_EQ(base.Width(), 360);
  EXPECT_EQ(base.GetNTOFs(3), 100);
  base.SetMiniflashRows(4);
  EXPECT_EQ(base.Height(), 128);
  EXPECT_EQ(base.udp_seq_base, 0U);
}

TEST_F(LidarParserTest, TheSensorsParserAnswersWithTheFrameGeometry) {
  LidarParser& base = parser;
  EXPECT_EQ(base.GetName(), "QNDR-UDP7.11");
  EXPECT_EQ(base.GetNPacketPerFrame(), 6912);
  EXPECT_EQ(base.GetNPower(), 1);
  EXPECT_EQ(base.Height(), 216);
  EXPECT_EQ(base.Width(), 288);
  EXPECT_EQ(base.GetNTOFs(0), 100);
  base.SetMiniflashRows(4);
  EXPECT_EQ(base.Height(), 216);
}

TEST_F(LidarParserTest, FramesFromUsbAreNotImplemented) {
  UdpPacket packet{};
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(parser.GetPacketFromUsbFrame("", packet, 0, 0), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[WARN] this lidar_type has not been implemented\n");
}

TEST_F(LidarParserTest, AWrongMagicIsPrintedWithTheFirstTenBytes) {
  UdpPacket packet = RawPacket();
  packet.buffer[0] = 1;
  packet.buffer[9] = 200;
  packet.length = 65535;  // printed as signed
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[DEBUG] UDP header doesn't match 0xEE, 0xFF,  udpPacket.buffer length = -1:  1 255 7 "
            "11 0 0 0 0 0 200\n");
  packet = RawPacket();
  packet.buffer[1] = 0xFE;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[DEBUG] UDP header doesn't match 0xEE, 0xFF,  udpPacket.buffer length = 692:  238 254 "
            "7 11 0 0 0 0 0 0\n");
}

TEST_F(LidarParserTest, AnotherVersionIsRefusedWithALineOnlyOnRequest) {
  UdpPacket packet = RawPacket();
  packet.buffer[3] = 10;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  parser.packet_debug = true;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[DEBUG] skipping packet v7.10\n");
  packet.buffer[2] = 8;
  packet.buffer[3] = 11;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), -1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[DEBUG] skipping packet v8.11\n");
}

TEST_F(LidarParserTest, ARefusedPacketLeavesEverythingAsItWas) {
  points.resize(3);
  points[1].row = 77;
  UdpPacket packet = RawPacket();
  packet.buffer[675] = 9;
  SetSequence(packet, 5);
  packet.buffer[3] = 12;
  EXPECT_EQ(Parse(packet), -1);
  packet.buffer[0] = 0;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), -1);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(points.size(), 3U);
  EXPECT_EQ(points[1].row, 77);
  EXPECT_EQ(frame_id, -7);
  EXPECT_EQ(parser.udp_seq_base, 0U);
}

TEST_F(LidarParserTest, AnotherChannelCountEndsTheProcess) {
  UdpPacket packet = RawPacket();
  packet.buffer[12] = 10;
  EXPECT_EXIT(Parse(packet), ::testing::KilledBySignal(SIGABRT),
              "src/MIPI_reader/parser/lidar_parser:804: .*Assertion `ch_num == 9' failed\\.");
  packet.buffer[12] = 0;
  EXPECT_EXIT(Parse(packet), ::testing::KilledBySignal(SIGABRT), "ch_num == 9");
}

TEST_F(LidarParserTest, TheVersionIsCheckedBeforeTheChannelCount) {
  UdpPacket packet = RawPacket();
  packet.buffer[3] = 10;
  packet.buffer[12] = 10;
  EXPECT_EQ(Parse(packet), -1);
}

TEST_P(PacketDecoding, GivesNinePointsWithTheirPlacesAndWords) {
  UdpPacket packet = RawPacket();
  packet.buffer[673] = 35;
  packet.buffer[671] = 3;
  packet.buffer[674] = 7;
  packet.buffer[675] = 250;
  BlockSamples samples = EmptyPixel(431);
  samples[6] = 0x001;
  samples[7] = 0x002;
  samples[8] = 0x803;
  SetBlock(packet, 8, samples);
  EXPECT_EQ(Parse(packet), 6911);
  EXPECT_EQ(frame_id, 250);
  ASSERT_EQ(points.size(), 9U);
  EXPECT_EQ(points[0].row, 210);
  EXPECT_EQ(points[0].col, 18);
  EXPECT_EQ(points[1].col, 18 + 24);
  EXPECT_EQ(points[8].row, 215);
  EXPECT_EQ(points[8].col, 287);
  EXPECT_EQ(points[8].pixel_word22, 4098.0F);
  EXPECT_EQ(points[8].pixel_word11, 3.0F);
}

TEST_P(PacketDecoding, EachOfTheNinePixelsComesFromItsOwnBlock) {
  UdpPacket packet = RawPacket();
  for (int i = 0; i < 9; ++i) {
    RawPixel pixel;
    pixel.SetPixelId(i);
    pixel.SetNoise(100 + i);
    pixel.samples[7] = static_cast<std::uint16_t>(200 + i);
    pixel.samples[8] = static_cast<std::uint16_t>(300 + i);
    pixel.SetPulse(0, 400 + i, 1000 + 10 * i, 0);
    pixel.SetPulse(1, 500 + i, 2000 + 10 * i, 0);
    SetBlock(packet, i, pixel.samples);
  }
  for (std::uint16_t i = 0; i < 200; ++i) parser.detect_threshold_bins.push_back(i);
  parser.shot_times = {0.0F};  // no shots: no baseline, threshold 0
  parser.keep_bins = true;
  Parse(packet);
  for (int i = 0; i < 9; ++i) {
    const LidarPoint& point = points.at(static_cast<std::size_t>(i));
    const auto n = static_cast<float>(i);
    EXPECT_EQ(point.pixel_word22, 200.0F + n);
    EXPECT_EQ(point.pixel_word11, 300.0F + n);
    EXPECT_EQ(point.echoes[0].noise, 100.0F + n);
    EXPECT_EQ(point.echoes[1].noise, 100.0F + n);
    EXPECT_EQ(point.echoes[0].peak_addr, 400 + i);
    EXPECT_EQ(point.echoes[1].peak_addr, 500 + i);
    EXPECT_EQ(point.echoes[0].bins[8], 1000 + 10 * i);
    EXPECT_EQ(point.echoes[1].bins[8], 2000 + 10 * i);
  }
}

TEST_P(PacketDecoding, LongerAndOlderVectorsAreCutAndReset) {
  points.resize(12);
  points[4].echoes[0].dist_raw = 3.0F;
  points[4].echoes[1].highRefl = true;
  points[4].echoes[1].debug_flag = true;
  EXPECT_EQ(Parse(RawPacket()), 0);
  ASSERT_EQ(points.size(), 9U);
  EXPECT_EQ(points[4].echoes[0].dist_raw, 0.0F);
  EXPECT_FALSE(points[4].echoes[1].highRefl);
  EXPECT_TRUE(points[4].echoes[1].debug_flag);
}

TEST_P(PacketDecoding, WildGroupAndSlotGivePlacesOutsideTheFrame) {
  UdpPacket packet = RawPacket();
  packet.buffer[673] = 255;
  packet.buffer[671] = 255;
  packet.buffer[674] = 255;
  SetBlock(packet, 8, EmptyPixel(4095));
  EXPECT_EQ(Parse(packet), 255 * 192 + 255 * 48 + 4095 / 72 * 8 + 255);
  EXPECT_EQ(points[0].row, 1530);
  EXPECT_EQ(points[0].col, 1530);
}

TEST_P(PacketDecoding, ShotsComeFromTheTableOfTheGroup) {
  parser.shot_times.assign(48, 80.0F);
  parser.shot_times[3] = 400.0F;
  UdpPacket packet = RawPacket();
  Parse(packet);
  EXPECT_EQ(points[0].shot_times, 80.0F);
  EXPECT_EQ(points[0].shot_ratio, 0.5F);
  packet.buffer[673] = 3;
  Parse(packet);
  EXPECT_EQ(points[8].shot_times, 400.0F);
  EXPECT_EQ(points[8].shot_ratio, 2.5F);
}

TEST_P(PacketDecoding, AGroupBeyondTheShotTableUsesTheNominalCount) {
  parser.shot_times.assign(48, 80.0F);
  UdpPacket packet = RawPacket();
  for (const int group : {48, 200}) {
    packet.buffer[673] = static_cast<std::uint8_t>(group);
    Parse(packet);
    EXPECT_EQ(points[0].shot_times, 160.0F);
    EXPECT_EQ(points[0].shot_ratio, 1.0F);
  }
  packet.buffer[673] = 47;
  Parse(packet);
  EXPECT_EQ(points[0].shot_times, 80.0F);
}

UdpPacket PacketWithNoise(int noise) {
  UdpPacket packet = RawPacket();
  BlockSamples samples = EmptyPixel(0);
  samples[4] = static_cast<std::uint16_t>(noise >> 12);
  samples[5] = static_cast<std::uint16_t>(noise & 0xFFF);
  SetBlock(packet, 0, samples);
  return packet;
}

TEST_P(PacketDecoding, TheDetectThresholdIsReadByNoiseAndShots) {
  for (int i = 0; i < 100; ++i) {
    parser.detect_threshold_bins.push_back(static_cast<std::uint16_t>(1000 + i));
  }
  Parse(PacketWithNoise(7));
  EXPECT_EQ(points[0].detect_threshold, 1007.0F);
  EXPECT_EQ(points[1].detect_threshold, 1000.0F);
  parser.shot_times = {120.0F};  // ratio 0.75: 7 * 0.75 = 5.25
  Parse(PacketWithNoise(7));
  EXPECT_EQ(points[0].detect_threshold, 1005.0F);
  // Clamped to 99 before the multiplication: 99 * 0.75 = 74.25.
  Parse(PacketWithNoise(65535));
  EXPECT_EQ(points[0].detect_threshold, 1074.0F);
}

TEST_P(PacketDecoding, ADetectThresholdIndexPastTheTableTakesTheLastEntry) {
  parser.detect_threshold_bins = {10, 20, 30};
  parser.shot_times = {432.0F};  // ratio 2.7
  Parse(PacketWithNoise(1));
  EXPECT_EQ(points[0].detect_threshold, 30.0F);  // index 2
  Parse(PacketWithNoise(2));
  EXPECT_EQ(points[0].detect_threshold, 30.0F);  // index 5
  parser.shot_times = {-160.0F};
  Parse(PacketWithNoise(2));
  EXPECT_EQ(points[0].detect_threshold, 10.0F);
}

TEST_P(PacketDecoding, WithoutATableTheDetectThresholdIsZero) {
  Parse(PacketWithNoise(5));
  EXPECT_EQ(points[0].detect_threshold, 0.0F);
}

UdpPacket PacketWithEchoes(int first_addr, int second_addr) {
  UdpPacket packet = RawPacket();
  BlockSamples samples = EmptyPixel(0);
  samples[4] = 1;
  samples[5] = 0xE00;  // noise 0x1E00 = 7680
  SetWindow(samples, 0, TriangleWindow(), first_addr);
  SetWindow(samples, 1, TriangleWindow(), second_addr);
  SetBlock(packet, 0, samples);
  return packet;
}

TEST_P(PacketDecoding, EchoesGetAddressNoiseAndBaseline) {
  parser.shot_times = {80.0F};
  parser.baseline_rise_gate = 1e9F;
  Parse(PacketWithEchoes(100, 200));
  const LidarEcho& echo = points[0].echoes[0];
  EXPECT_EQ(echo.peak_addr, 100);
  EXPECT_EQ(echo.noise, 7680.0F);
  // 3 * 80 * 7680 / 2048 = 900, above every sum, so that the computation ends at the threshold.
  EXPECT_EQ(echo.baseline, 900.0F);
  EXPECT_EQ(points[0].echoes[1].peak_addr, 200);
  EXPECT_EQ(points[0].echoes[1].baseline, 900.0F);
}

TEST_P(PacketDecoding, TheLastAddressIsTakenAndTheNextIsNot) {
  Parse(PacketWithEchoes(1000, 1001));
  EXPECT_EQ(points[0].echoes[0].peak_addr, 1000);
  EXPECT_EQ(points[0].echoes[0].noise, 7680.0F);
  EXPECT_EQ(points[0].echoes[1].peak_addr, 0);
  EXPECT_EQ(points[0].echoes[1].noise, 0.0F);
  EXPECT_EQ(points[0].echoes[1].baseline, 0.0F);
  EXPECT_TRUE(points[0].echoes[1].detect_pass);  // reset state, nothing was computed
}

TEST_P(PacketDecoding, TheEchoCountLimitsTheWindowsThatAreRead) {
  Parse(PacketWithEchoes(100, 200), 1);
  EXPECT_EQ(points[0].echoes[0].peak_addr, 100);
  EXPECT_EQ(points[0].echoes[1].peak_addr, 0);
  EXPECT_EQ(points[0].echoes[1].noise, 0.0F);
  Parse(PacketWithEchoes(100, 200), 0);
  EXPECT_EQ(points[0].echoes[0].peak_addr, 0);
  EXPECT_EQ(points[0].row, 0);
  Parse(PacketWithEchoes(100, 200), -1);
  EXPECT_EQ(points[0].echoes[0].peak_addr, 0);
  Parse(PacketWithEchoes(100, 200), 7);
  EXPECT_EQ(points[0].echoes[1].peak_addr, 200);
}

TEST_P(PacketDecoding, EachEchoIsComputedFromItsOwnWindow) {
  // Noise 0: baseline 0, every sum above it counts and the threshold 0 is always passed.
  UdpPacket packet = RawPacket();
  BlockSamples samples = EmptyPixel(0);
  SetWindow(samples, 0, TriangleWindow(), 10);
  std::array<std::uint16_t, 17> second{};
  second[8] = 7;
  SetWindow(samples, 1, second, 20);
  SetBlock(packet, 0, samples);
  parser.detect_threshold_bins = {1};
  parser.keep_bins = true;
  Parse(packet);
  EXPECT_EQ(points[0].echoes[0].peak, 200.0F);
  EXPECT_EQ(points[0].echoes[1].peak, 7.0F);
  EXPECT_FLOAT_EQ(points[0].echoes[0].dist_raw, 18.0F * 0.15F);
  EXPECT_FLOAT_EQ(points[0].echoes[1].dist_raw, 28.0F * 0.15F);
  EXPECT_EQ(points[0].echoes[0].bins[8], 100);
  EXPECT_EQ(points[0].echoes[1].bins[8], 7);
}

TEST_F(LidarParserTest, TheFirstSequenceNumberThatIsNotZeroIsTheBase) {
  UdpPacket packet = RawPacket();
  SetSequence(packet, 0);
  Parse(packet);
  EXPECT_EQ(parser.udp_seq_base, 0U);
  SetSequence(packet, 0xFFFFFFF0U);
  Parse(packet);
  EXPECT_EQ(parser.udp_seq_base, 0xFFFFFFF0U);
  SetSequence(packet, 6);
  Parse(packet);
  EXPECT_EQ(parser.udp_seq_base, 0xFFFFFFF0U);
}

TEST_F(LidarParserTest, WithoutPacketDebugATakenPacketPrintsNothing) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(RawPacket()), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_F(LidarParserTest, ThePacketLineHasAllItsItems) {
  parser.packet_debug = true;
  UdpPacket packet = RawPacket();
  packet.buffer[13] = 0x34;
  packet.buffer[14] = 0x12;  // packet_type 4660
  packet.buffer[15] = 200;
  packet.buffer[671] = 1;
  packet.buffer[672] = 77;
  packet.buffer[673] = 2;
  packet.buffer[674] = 3;
  packet.buffer[675] = 255;
  packet.buffer[676] = 0xFF;
  packet.buffer[677] = 0xFF;
  for (int i = 684; i < 688; ++i) packet.buffer[i] = 0xFF;
  SetSequence(packet, 0xFFFFFFFFU);
  SetBlock(packet, 8, EmptyPixel(80));
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(Parse(packet), 443);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "[PacketDebug] packet_type=4660 frame_id=255 scan_mode=200 mipi_packet_id=77 "
            "subpkt_id=3 slot_id=1 group_id=2 total_packet_id=443 frame_duration=65535 "
            "timestamp=4294967295 pixel_id=80 udp_sequence_num=-1 m_row=2\n");
}

TEST_P(PacketDecoding, AShortDatagramIsReadFromWhatTheBufferHolds) {
  UdpPacket packet = RawPacket();
  packet.buffer[673] = 5;
  packet.length = 4;
  EXPECT_EQ(Parse(packet), 5 * 192);
  EXPECT_EQ(points.size(), 9U);
}

TEST_P(PacketDecoding, NothingIsAllocatedAfterTheFirstPacket) {
  parser.detect_threshold_bins = {1};
  const UdpPacket packet = PacketWithEchoes(100, 200);
  Parse(packet);
  const long before = AllocationCount();
  for (int i = 0; i < 10; ++i) Parse(packet);
  EXPECT_EQ(AllocationCount(), before);
  EXPECT_GT(before, 0);  // the counter works
}

TEST_P(PacketDecoding, AnySampleAndHeaderBytesAreTaken) {
  parser.detect_threshold_bins = {1, 2, 3};
  parser.shot_times.assign(48, 432.0F);
  parser.cogw_filter = std::make_shared<CogwFilter>(
      std::vector<float>(641, 2.0F), std::vector<float>(641, 1.0F), std::vector<float>(641, 1.0F));
  parser.clip_side_peaks = true;
  parser.baseline_samples = 4;
  parser.baseline_rise_limit = 100.0F;
  UdpPacket packet = RawPacket();
  std::uint32_t state = 12345;
  int taken = 0;
  for (int round = 0; round < 2000; ++round) {
    for (int i = 20; i < 692; ++i) {
      state = state * 1664525U + 1013904223U;
      packet.buffer[i] = static_cast<std::uint8_t>(state >> 24);
    }
    if (Parse(packet) >= 0) ++taken;
  }
  EXPECT_EQ(taken, 2000);
}

}  // namespace
}  // namespace kerul::lidar::testing
