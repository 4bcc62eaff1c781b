#include "kerul_lidar/point_payload.h"

#include <gtest/gtest.h>

#include "kerul_lidar/point_packet_layout.h"

namespace kerul::lidar {
namespace {

using namespace payload_field;

PointPayload Decode(int mode, std::uint8_t b0, std::uint8_t b1, std::uint8_t b2) {
  const std::uint8_t bytes[3] = {b0, b1, b2};
  return DecodePointPayload(mode, bytes);
}

TEST(PointPayload, ModeZeroHoldsReflectivityHeightRatioAndGround) {
  // cogh 6, shot ratio 1.0, on the ground: 6 mod 4 + 4 * 10 = 42, 6 / 4 - 128 = byte 129.
  const PointPayload payload = Decode(0, 200, 42, 129);
  EXPECT_EQ(payload.carries, kReflectivity | kCogh | kShotRatio | kGround);
  EXPECT_EQ(payload.reflectivity, 200);
  EXPECT_EQ(payload.cogh, 6.0F);
  EXPECT_EQ(payload.shot_ratio, 1.0F);
  EXPECT_TRUE(payload.ground);
  // The highest height that leaves the flag's bit free: 511.
  const PointPayload high = Decode(0, 0, 3, 127);
  EXPECT_EQ(high.cogh, 511.0F);
  EXPECT_FALSE(high.ground);
}

TEST(PointPayload, ModeOneHoldsTheLowSixteenBitsOfTheWord) {
  const PointPayload payload = Decode(1, 0x12, 0x34, 0);
  EXPECT_EQ(payload.carries, kPixelWord);
  EXPECT_EQ(payload.pixel_word, 0x1234);
}

TEST(PointPayload, ModeThreeHoldsNoiseAndWidth) {
  // noise 0x5A7: 0x5A, low nibble 7. 128 * cogw = 0x234: low nibble 4, then 0x23.
  const PointPayload payload = Decode(3, 0x5A, 0x74, 0x23);
  EXPECT_EQ(payload.carries, kNoise | kCogw);
  EXPECT_EQ(payload.noise, 1447.0F);
  EXPECT_EQ(payload.cogw, 564.0F / 128.0F);
}

TEST(PointPayload, ModeFourHoldsNoiseAndPeak) {
  const PointPayload payload = Decode(4, 0x01, 0x2F, 0xFF);
  EXPECT_EQ(payload.carries, kNoise | kPeak);
  EXPECT_EQ(payload.noise, 18.0F);
  EXPECT_EQ(payload.peak, 4095.0F);
}

TEST(PointPayload, ModeFiveHoldsNoiseAndHeight) {
  const PointPayload payload = Decode(5, 0x00, 0xF1, 0x10);
  EXPECT_EQ(payload.carries, kNoise | kCogh);
  EXPECT_EQ(payload.noise, 15.0F);
  EXPECT_EQ(payload.cogh, 257.0F);
}

TEST(PointPayload, ModeSixHoldsWidthAndPeak) {
  const PointPayload payload = Decode(6, 0x20, 0x08, 0x01);
  EXPECT_EQ(payload.carries, kCogw | kPeak);
  EXPECT_EQ(payload.cogw, 4.0F);
  EXPECT_EQ(payload.peak, 24.0F);
}

TEST(PointPayload, ModeNineHoldsTheWordAndTheHeight) {
  // word 0xABC: 0xAB, low nibble 0xC. cogh 301 = 2 * 150 + 1.
  const PointPayload payload = Decode(9, 0xAB, 0x8C, 150);
  EXPECT_EQ(payload.carries, kPixelWord | kCogh);
  EXPECT_EQ(payload.pixel_word, 0xABC);
  EXPECT_EQ(payload.cogh, 301.0F);
}

TEST(PointPayload, ModeTenHoldsTheDirection) {
  const PointPayload payload = Decode(10, 255, 0, 128);
  EXPECT_EQ(payload.carries, kDirection);
  EXPECT_EQ(payload.direction[0], 1.0F);
  EXPECT_EQ(payload.direction[1], -1.0F);
  EXPECT_NEAR(payload.direction[2], 0.0F, 1.0F / 127.5F) << "half a step above zero";
}

TEST(PointPayload, ModeElevenHoldsPulseRatioHeightShotsAndGround) {
  // cogh 7, 160 shots: 3 + 4 * 2 = 11, 7 / 4 = 1.
  const PointPayload payload = Decode(11, 64, 11, 1);
  EXPECT_EQ(payload.carries, kCogh | kGround | kWaveformRms | kShotTimes);
  EXPECT_EQ(payload.waveform_rms_ratio, 0.25F);
  EXPECT_EQ(payload.cogh, 7.0F);
  EXPECT_EQ(payload.shot_times, 128.0F);
  EXPECT_FALSE(payload.ground);
}

TEST(PointPayload, ModeTwelveHoldsReflectivityAndFlags) {
  const PointPayload none = Decode(12, 9, 0, 0);
  EXPECT_EQ(none.carries, kReflectivity | kFlags | kGround);
  EXPECT_EQ(none.reflectivity, 9);
  EXPECT_FALSE(none.high_refl || none.bloom || none.after_pulse || none.ground || none.filled);
  EXPECT_FALSE(none.shot_noise || none.debug || none.echo_flag || none.detect_failed);

  EXPECT_EQ(Decode(12, 0, 0x05, 0).cogw_flag, 5);
  EXPECT_TRUE(Decode(12, 0, 0x08, 0).high_refl);
  EXPECT_TRUE(Decode(12, 0, 0x10, 0).bloom);
  EXPECT_TRUE(Decode(12, 0, 0x20, 0).after_pulse);
  EXPECT_TRUE(Decode(12, 0, 0x40, 0).ground);
  EXPECT_TRUE(Decode(12, 0, 0x80, 0).filled);
  EXPECT_TRUE(Decode(12, 0, 0, 0x01).shot_noise);
  EXPECT_TRUE(Decode(12, 0, 0, 0x02).debug);
  EXPECT_TRUE(Decode(12, 0, 0, 0x04).echo_flag);
  EXPECT_TRUE(Decode(12, 0, 0, 0x08).detect_failed);
  EXPECT_TRUE(Decode(12, 0, 0, 0x10).shot_noise_group);
  const PointPayload all_but_ground = Decode(12, 0, 0xBF, 0xFF);
  EXPECT_FALSE(all_but_ground.ground);
  EXPECT_TRUE(all_but_ground.filled);
}

TEST(PointPayload, AnyOtherModeHoldsTheWindowsFirstBin) {
  int checked = 0;
  for (const int mode : {2, 7, 8, 13, 255}) {
    const PointPayload payload = Decode(mode, 77, 0, 0);
    EXPECT_EQ(payload.carries, kPeakAddr);
    EXPECT_EQ(payload.peak_addr, 77);
    ++checked;
  }
  EXPECT_EQ(checked, 5);
}

TEST(PointPayload, IntensityIsReflectivityOrTheUpperBitsOfPeakOrHeight) {
  const std::uint8_t bytes[3] = {11, 22, 33};
  EXPECT_EQ(PointIntensity(0, bytes), 11);
  EXPECT_EQ(PointIntensity(12, bytes), 11);
  EXPECT_EQ(PointIntensity(4, bytes), 33);
  EXPECT_EQ(PointIntensity(5, bytes), 33);
  EXPECT_EQ(PointIntensity(6, bytes), 33);
  EXPECT_EQ(PointIntensity(2, bytes), 11);
}

TEST(PointFlags, AreTheTwoFlagBytesOfModeTwelve) {
  const std::uint8_t bytes[3] = {200, 0xC5, 0x19};
  const std::uint16_t flags = PointFlags(12, bytes);
  EXPECT_EQ(flags, 0x19C5);
  EXPECT_EQ((flags >> point_flag::kGround) & 1, 1);
  EXPECT_EQ((flags >> point_flag::kFilled) & 1, 1);
  EXPECT_EQ((flags >> point_flag::kBloom) & 1, 0);
  EXPECT_EQ((flags >> point_flag::kShotNoiseGroup) & 1, 1);
  EXPECT_EQ(flags & point_flag::kCogwFlagMask, 5);
  EXPECT_EQ(KnownFlags(12), 0x1FFF);
  const std::uint8_t unused[3] = {0, 0, 0xE0};
  EXPECT_EQ(PointFlags(12, unused), 0) << "bits without a meaning";
}

TEST(PointFlags, AreTheGroundAloneWhereTheHeightIsSent) {
  const std::uint8_t ground[3] = {0xFF, 0xFF, 0x80};
  const std::uint8_t none[3] = {0xFF, 0xFF, 0x7F};
  for (const int mode : {0, 11}) {
    EXPECT_EQ(PointFlags(mode, ground), 0x40);
    EXPECT_EQ(PointFlags(mode, none), 0);
    EXPECT_EQ(KnownFlags(mode), 0x40);
  }
  for (const int mode : {1, 2, 3, 4, 5, 6, 9, 10}) EXPECT_EQ(KnownFlags(mode), 0) << mode;
}

TEST(CarriedFields, AreThoseThatDecodingFillsIn) {
  EXPECT_EQ(CarriedFields(0), kReflectivity | kCogh | kShotRatio | kGround);
  EXPECT_EQ(CarriedFields(4), kNoise | kPeak);
  EXPECT_EQ(CarriedFields(7), kPeakAddr);
}

}  // namespace
}  // namespace kerul::lidar
