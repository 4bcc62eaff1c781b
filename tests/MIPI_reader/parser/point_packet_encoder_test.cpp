#include "MIPI_reader/parser/point_packet_encoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

using Bytes = PayloadBytes;

// The default mode, which the vector forms write too: a whole block of one point.
class DefaultMode : public FormsTest {
 protected:
  DefaultMode() { LidarPoint::echo_num = 2; }
  ~DefaultMode() override { LidarPoint::echo_num = 1; }

  // What all 36 points of the block are: distance units, then the payload.
  struct Encoded {
    int distance;
    Bytes payload;
  };
  Encoded Encode(int echo = 0) const {
    const FrameRows rows(6, std::vector<LidarPoint>(6, point));
    std::vector<std::uint8_t> packet(kMaxDatagramBytes);
    WritePoints(rows, AngleCalibGrid{}, 0, echo, static_cast<int>(OutputMode::kReflectivity),
                packet.data());
    const std::uint8_t* const first = packet.data() + point_packet::kPointsOffset;
    for (int i = 1; i < point_packet::kPoints; ++i) {
      EXPECT_EQ(std::memcmp(first, first + 5 * i, 5), 0) << "point " << i;
    }
    return {first[0] + 256 * first[1], {first[2], first[3], first[4]}};
  }
  int Distance(float range) {
    point.echoes[0].dist_proc = range;
    return Encode().distance;
  }
  int Reflectivity(float value) {
    point.echoes[0].refl_proc = value;
    return Encode().payload[0];
  }

  LidarPoint point;
};
RUN_IN_EVERY_FORM(DefaultMode);

TEST_P(DefaultMode, CountsUnitsSlightlyAboveFourMillimetres) {
  EXPECT_EQ(Distance(0.06F), 14);
  EXPECT_EQ(Distance(1.0F), 249);
  EXPECT_EQ(Distance(39.99F), 9997);
}

TEST_P(DefaultMode, PublishesOnlyItsSpan) {
  EXPECT_EQ(Distance(0.05F), 0);
  EXPECT_EQ(Distance(std::nextafter(0.05F, 1.0F)), 12);
  EXPECT_EQ(Distance(40.0F), 0);
  EXPECT_EQ(Distance(std::nextafter(40.0F, 0.0F)), 9999);
  EXPECT_EQ(Distance(0.0F), 0);
  EXPECT_EQ(Distance(-1.0F), 0);
}

TEST_P(DefaultMode, WhatIsNoNumberIsNoReturn) {
  for (const float range : {std::nanf(""), INFINITY, -INFINITY}) EXPECT_EQ(Distance(range), 0);
}

TEST_P(DefaultMode, ReflectivityIsTruncatedAndLimited) {
  EXPECT_EQ(Reflectivity(254.9F), 254);
  EXPECT_EQ(Reflectivity(255.0F), 255);
  EXPECT_EQ(Reflectivity(300.0F), 255);
  EXPECT_EQ(Reflectivity(INFINITY), 255);
  EXPECT_EQ(Reflectivity(std::nanf("")), 0);
  EXPECT_EQ(Reflectivity(-3.5F), 253);
}

TEST_P(DefaultMode, SpreadsHeightGroundAndShots) {
  LidarEcho& echo = point.echoes[0];
  echo.cogh = 6.0F;
  echo.ground = true;
  EXPECT_EQ(Encode().payload, (Bytes{0, 42, 129}));
  echo.ground = false;
  EXPECT_EQ(Encode().payload, (Bytes{0, 42, 1}));
  point.shot_ratio = 1.8F;  // in single precision 18
  echo.cogh = 511.9F;
  EXPECT_EQ(Encode().payload, (Bytes{0, 3 + 72, 127}));
  // The bytes wrap: 4 * 70 = 280, 1000 / 4 = 250, 250 - 128 = 122.
  point.shot_ratio = 7.0F;
  echo.cogh = 1001.0F;
  echo.ground = true;
  EXPECT_EQ(Encode().payload, (Bytes{0, 25, 122}));
}

TEST_P(DefaultMode, ANegativeHeightIsDividedTowardZero) {
  const auto height = [&](float value) {
    point.echoes[0].cogh = value;
    const Bytes payload = Encode().payload;
    return std::pair<int, int>{payload[1], payload[2]};
  };
  using Pair = std::pair<int, int>;
  point.shot_ratio = 0.0F;
  EXPECT_EQ(height(-5.5F), (Pair{255, 255}));  // -5: remainder -1, quotient -1
  EXPECT_EQ(height(-3.0F), (Pair{253, 0}));
  EXPECT_EQ(height(-8.0F), (Pair{0, 254}));
}

TEST_P(DefaultMode, ReadsTheGivenEcho) {
  point.echoes[0].refl_proc = 1.0F;
  point.echoes[1].refl_proc = 2.0F;
  EXPECT_EQ(Encode(0).payload[0], 1);
  EXPECT_EQ(Encode(1).payload[0], 2);
}

TEST(EncodeDistance, OtherModesPublishAll) {
  EXPECT_EQ(EncodeDistance(40.0F, 3), 9999);
  EXPECT_EQ(EncodeDistance(0.05F, 12), 12);
  EXPECT_EQ(EncodeDistance(0.0F, 3), 0);
  // 300 m are 74999 units, of which 16 bits are kept.
  EXPECT_EQ(EncodeDistance(300.0F, 3), 74999 - 65536);
  EXPECT_EQ(EncodeDistance(-1.0F, 3), 65536 - 249);
}

TEST(EncodeDistance, WhatIsNoNumberIsNoReturn) {
  EXPECT_EQ(EncodeDistance(std::nanf(""), 3), 0);
  EXPECT_EQ(EncodeDistance(INFINITY, 3), 0);
  EXPECT_EQ(EncodeDistance(-INFINITY, 3), 0);
}

TEST(EncodePayload, ReflectivityIsTruncatedAndLimited) {
  LidarPoint point;
  const auto reflectivity = [&](float value) {
    point.echoes[0].refl_proc = value;
    return EncodePayload(point, 0, 12)[0];
  };
  EXPECT_EQ(reflectivity(254.9F), 254);
  EXPECT_EQ(reflectivity(300.0F), 255);
  EXPECT_EQ(reflectivity(std::nanf("")), 0);
  EXPECT_EQ(reflectivity(-3.5F), 253);
}

TEST(EncodePayload, ModeOneCarriesTheWideWord) {
  LidarPoint point;
  point.pixel_word22 = static_cast<float>(0x1234);
  EXPECT_EQ(EncodePayload(point, 0, 1), (Bytes{0x12, 0x34, 0}));
  point.pixel_word22 = static_cast<float>(0x3FF456);
  EXPECT_EQ(EncodePayload(point, 0, 1), (Bytes{0xF4, 0x56, 0}));
}

TEST(EncodePayload, ModeThreeCarriesNoiseAndWidth) {
  LidarPoint point;
  point.echoes[0].noise = 300.0F;  // 0x12C
  point.echoes[0].cogw = 3.5F;     // 448 = 0x1C0
  EXPECT_EQ(EncodePayload(point, 0, 3), (Bytes{0x12, 0xC0, 0x1C}));
  point.echoes[0].cogw = 3.5703125F;  // 457 = 0x1C9
  EXPECT_EQ(EncodePayload(point, 0, 3), (Bytes{0x12, 0xC9, 0x1C}));
  point.echoes[0].cogw = -1.0F;  // -128: remainder 0, quotient -8
  EXPECT_EQ(EncodePayload(point, 0, 3), (Bytes{0x12, 0xC0, 0xF8}));
}

TEST(EncodePayload, ModeFourCarriesNoiseAndPeak) {
  LidarPoint point;
  point.echoes[0].noise = 300.0F;
  point.echoes[0].peak = 0x345 + 0.75F;
  EXPECT_EQ(EncodePayload(point, 0, 4), (Bytes{0x12, 0xC5, 0x34}));
}

TEST(EncodePayload, ModeFiveCarriesNoiseAndHeight) {
  LidarPoint point;
  point.echoes[0].noise = 300.0F;
  point.echoes[0].cogh = 0x67 + 0.5F;
  EXPECT_EQ(EncodePayload(point, 0, 5), (Bytes{0x12, 0xC7, 0x06}));
}

TEST(EncodePayload, ModeSixCarriesWidthAndPeak) {
  LidarPoint point;
  point.echoes[0].cogw = 3.5703125F;  // 0x1C9
  point.echoes[0].peak = 0x345;
  EXPECT_EQ(EncodePayload(point, 0, 6), (Bytes{0x1C, 0x95, 0x34}));
}

TEST(EncodePayload, ModeNineCarriesTheWideWordAndHeight) {
  LidarPoint point;
  point.pixel_word22 = static_cast<float>(0x567);
  point.echoes[0].cogh = 0x5B;  // odd: 128 joins the word's low nibble
  EXPECT_EQ(EncodePayload(point, 0, 9), (Bytes{0x56, 0x87, 0x2D}));
}

TEST(EncodePayload, ModeElevenCarriesTheWaveformRatio) {
  LidarPoint point;
  point.echoes[0].cogh = 6.0F;
  point.echoes[0].waveform_rms_ratio = 0.5F;
  point.echoes[0].ground = true;
  EXPECT_EQ(EncodePayload(point, 0, 11), (Bytes{128, 2 + 4 * 2, 129}));  // 160 / 64 = 2.5
  point.echoes[0].waveform_rms_ratio = 255.0F / 256.0F;
  EXPECT_EQ(EncodePayload(point, 0, 11)[0], 255);
  point.echoes[0].waveform_rms_ratio = 7.0F;
  EXPECT_EQ(EncodePayload(point, 0, 11)[0], 255);
  point.echoes[0].waveform_rms_ratio = std::nanf("");
  EXPECT_EQ(EncodePayload(point, 0, 11)[0], 0);
}

TEST(EncodePayload, ModeTwelveCarriesTheFlags) {
  const auto flags = [](auto set) {
    LidarPoint point;
    set(point.echoes[1]);
    const Bytes bytes = EncodePayload(point, 1, 12);
    return std::pair<int, int>{bytes[1], bytes[2]};
  };
  using Pair = std::pair<int, int>;
  EXPECT_EQ(flags([](LidarEcho&) {}), (Pair{0, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.cogw_flag = 5; }), (Pair{5, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.cogw_flag = 0xFF; }), (Pair{7, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.highRefl = true; }), (Pair{8, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.highReflBlooming = true; }), (Pair{16, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.afterPulse = true; }), (Pair{32, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.ground = true; }), (Pair{64, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.fill_point = true; }), (Pair{128, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.shot_noise_point = true; }), (Pair{0, 1}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.debug_flag = true; }), (Pair{0, 2}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.echo_flags = 0xFF; }), (Pair{0, 4}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.echo_flags = 0xFE; }), (Pair{0, 0}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.detect_pass = false; }), (Pair{0, 8}));
  EXPECT_EQ(flags([](LidarEcho& e) { e.shot_noise_group_point = true; }), (Pair{0, 16}));
}

TEST(EncodePayload, AnyOtherModeCarriesTheWindowAddress) {
  LidarPoint point;
  point.echoes[0].peak_addr = 0x3E8;
  for (const int mode : {2, 7, 8, 13, 255, -1}) {
    EXPECT_EQ(EncodePayload(point, 0, mode), (Bytes{0xE8, 0, 0}));
  }
}

TEST(EncodePayload, WildValuesEndInSomeBytesInEveryMode) {
  const float wild[] = {std::nanf(""), INFINITY, -INFINITY, 1e30F, -1e30F, -2147483648.0F};
  int encoded = 0;
  for (const float value : wild) {
    LidarPoint point;
    point.pixel_word22 = value;
    point.shot_ratio = value;
    point.shot_times = value;
    LidarEcho& echo = point.echoes[0];
    echo.noise = echo.cogw = echo.cogh = echo.peak = echo.waveform_rms_ratio = value;
    echo.cogw_flag = std::numeric_limits<std::int32_t>::min();
    echo.ground = true;
    for (int mode = 0; mode < 16; ++mode) {
      EncodePayload(point, 0, mode);
      ++encoded;
    }
    // Out of range is 0x80000000: low byte 0, remainders 0, quotients with a zero low byte.
    EXPECT_EQ(EncodePayload(point, 0, 5), (Bytes{0, 0, 0}));
  }
  EXPECT_EQ(encoded, 96);
}

AngleCalibGrid Grid() {
  AngleCalibGrid grid;
  grid.rows = 2;
  grid.cols = 2;
  grid.xyz = {1.0F, 1.0F, 1.0F, 0.5F, 0.0F, 0.0F, 0.0F, -1.0F, 0.0F, 0.0F, 0.0F, 0.0F};
  grid.valid = true;
  return grid;
}

TEST(EncodeDirection, GivesAByteForEachComponent) {
  EXPECT_EQ(EncodeDirection(Grid(), 0, 0), (Bytes{255, 128, 128}));
  EXPECT_EQ(EncodeDirection(Grid(), 1, 1), (Bytes{191, 0, 128}));
}

TEST(EncodeDirection, GivesZerosWithoutADirection) {
  AngleCalibGrid invalid = Grid();
  invalid.valid = false;
  EXPECT_EQ(EncodeDirection(invalid, 0, 0), (Bytes{0, 0, 0}));
  EXPECT_EQ(EncodeDirection({}, 0, 0), (Bytes{0, 0, 0}));
  EXPECT_EQ(EncodeDirection(Grid(), 2, 0), (Bytes{0, 0, 0}));
  EXPECT_EQ(EncodeDirection(Grid(), 0, 2), (Bytes{0, 0, 0}));
  EXPECT_EQ(EncodeDirection(Grid(), -1, 0), (Bytes{0, 0, 0}));
}

TEST(EncodeReturnCode, PacksTwoDigits) {
  EXPECT_EQ(EncodeReturnCode(1), 1);
  EXPECT_EQ(EncodeReturnCode(9), 9);
  EXPECT_EQ(EncodeReturnCode(10), 0x10);
  EXPECT_EQ(EncodeReturnCode(12), 0x12);
  EXPECT_EQ(EncodeReturnCode(99), 0x99);
  EXPECT_EQ(EncodeReturnCode(123), 0xC3);  // 12 tens
  EXPECT_EQ(EncodeReturnCode(345), 0x25);  // 34 tens = 0x22, shifted and cut to 0x20
  EXPECT_EQ(EncodeReturnCode(65535), static_cast<std::uint8_t>((6553 << 4) | 5));
}

TEST(PointPacketSequence, CountsOneOrTwoPacketsABlock) {
  EXPECT_EQ(PointPacketSequence(100, 7, 0), 107U);
  EXPECT_EQ(PointPacketSequence(100, 7, 1), 114U);
  EXPECT_EQ(PointPacketSequence(100, 7, 2), 115U);
  EXPECT_EQ(PointPacketSequence(0xFFFFFFFFU, 1, 0), 0U);
}

TEST(WritePointPacketHeader, WritesTheNamedBytesAndNoOthers) {
  UdpPacket packet;
  std::memset(packet.buffer, 0x5A, sizeof(packet.buffer));
  WritePointPacketHeader({.height = 216,
                          .width = 288,
                          .blocks_per_column = 36,
                          .blocks_per_row = 48,
                          .marker = 2,
                          .output_mode = 0x10C,
                          .packet_index = 1727,
                          .frame_id = 0x1FE,
                          .echo_output_code = 12,
                          .time = {0x01020304, 0x000A0B0C},
                          .sequence = 0xA1B2C3D4},
                         packet.buffer);
  UdpPacket expected;
  std::memset(expected.buffer, 0x5A, sizeof(expected.buffer));
  const std::uint8_t head[] = {0xEE, 0xFF, 7, 10, 0x5A, 0x5A, 216, 0, 0x20, 1, 36, 48, 2, 4, 36, 0};
  std::memcpy(expected.buffer, head, sizeof(head));
  const std::uint8_t tail[] = {0x0C, 0xDD, 0xEE, 0xFF, 35,   47,   0xFE, 0,   0x12,
                               100,  0,    0,    0,    1,    2,    3,    4,   0x0C,
                               0x0B, 0x0A, 0,    0x42, 0xD4, 0xC3, 0xB2, 0xA1};
  std::memcpy(expected.buffer + 203, tail, sizeof(tail));
  for (std::size_t i = 0; i < sizeof(packet.buffer); ++i) {
    EXPECT_EQ(packet.buffer[i], expected.buffer[i]) << "at " << i;
  }
}

}  // namespace
}  // namespace kerul::lidar
