#include "calibration/para2_lidar_calib.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "calibration/sample_para2.h"
#include "calibration/thrown_text.h"

namespace kerul::lidar {
namespace {

using para2_lidar_detail::GenPara2Crc32;
using para2_lidar_detail::ParseLidarId;
using para2_lidar_detail::UnpackPara2Main;
using para2_lidar_detail::VerifyHeadCrc;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kOffsets = 0;
constexpr std::size_t kScales = 82944;
constexpr std::size_t kCurve = 165888;
constexpr std::size_t kCurveHigh = 166912;
constexpr std::size_t kRetroCurve = 167936;
constexpr std::size_t kMainSize = 168960;

std::uint32_t CrcOf(const std::string& text) {
  return GenPara2Crc32(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

Para2LidarCalib Unpack(const Bytes& main, int tile_pixels = 36, int tile_columns = 48) {
  Para2LidarCalib calib;
  UnpackPara2Main(main, tile_pixels, tile_columns, calib);
  return calib;
}

void StoreI16(Bytes& bytes, std::size_t at, int value) {
  bytes[at] = static_cast<std::uint8_t>(value);
  bytes[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

TEST(Para2Crc, GivesTheCheckValueOfItsFamily) { EXPECT_EQ(CrcOf("123456789"), 0x0376E6E7U); }

TEST(Para2Crc, NothingGivesZeroAndNotTheStartValue) {
  const std::uint8_t byte = 1;
  EXPECT_EQ(GenPara2Crc32(nullptr, 0), 0U);
  EXPECT_EQ(GenPara2Crc32(nullptr, 9), 0U);
  EXPECT_EQ(GenPara2Crc32(&byte, 0), 0U);
}

TEST(Para2Crc, EqualsTheDivisionBitByBit) {
  std::mt19937 random(5);
  int compared = 0;
  for (std::size_t size : {1U, 2U, 3U, 4U, 5U, 63U, 64U, 65U, 1000U}) {
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    EXPECT_EQ(GenPara2Crc32(bytes.data(), size), BitSerialCrc(bytes.data(), size)) << size;
    ++compared;
  }
  EXPECT_EQ(compared, 9);
}

TEST(Para2HeadCrc, ASealedPairPasses) {
  const SamplePara2 sample = MakeSample("QNDR_003", 512);
  EXPECT_NO_THROW(VerifyHeadCrc(sample.head, sample.main));
}

TEST(Para2HeadCrc, TheFirst136BytesOfTheHeadSuffice) {
  const SamplePara2 sample = MakeSample("QNDR_003", 512);
  const Bytes shortest(sample.head.begin(), sample.head.begin() + 136);
  EXPECT_NO_THROW(VerifyHeadCrc(shortest, sample.main));
  const Bytes shorter(sample.head.begin(), sample.head.begin() + 135);
  EXPECT_EQ(ThrownText([&] { VerifyHeadCrc(shorter, sample.main); }),
            "para2 head too short for CRC fields");
  EXPECT_EQ(ThrownText([&] { VerifyHeadCrc({}, sample.main); }),
            "para2 head too short for CRC fields");
}

TEST(Para2HeadCrc, BytesBehindTheCheckedOnesMayChange) {
  SamplePara2 sample = MakeSample("QNDR_003", 512);
  sample.head[136] ^= 0xFF;
  sample.head[255] ^= 0xFF;
  EXPECT_NO_THROW(VerifyHeadCrc(sample.head, sample.main));
}

// The text with the four numbers as the test computes them.
std::string MismatchText(const SamplePara2& sample) {
  const auto stored = [&](std::size_t at) {
    return std::to_string(sample.head[at] + 0x100U * sample.head[at + 1] +
                          0x10000U * sample.head[at + 2] + 0x1000000U * sample.head[at + 3]);
  };
  return "para2 head checksum verify failed (para2_crc stored=" + stored(128) +
         " calc=" + std::to_string(BitSerialCrc(sample.main.data(), sample.main.size())) +
         ", head128_crc stored=" + stored(132) +
         " calc=" + std::to_string(BitSerialCrc(sample.head.data(), 128)) + ")";
}

TEST(Para2HeadCrc, EveryCheckedPlaceIsFoundOut) {
  const SamplePara2 good = MakeSample("QNDR_003", 512);
  int compared = 0;
  for (std::size_t at : {0U, 20U, 98U, 127U, 128U, 131U, 132U, 135U}) {
    SamplePara2 bad = good;
    bad.head[at] ^= 0x80;
    EXPECT_EQ(ThrownText([&] { VerifyHeadCrc(bad.head, bad.main); }), MismatchText(bad)) << at;
    ++compared;
  }
  for (std::size_t at : {0U, 255U, 511U}) {
    SamplePara2 bad = good;
    bad.main[at] ^= 0x01;
    EXPECT_EQ(ThrownText([&] { VerifyHeadCrc(bad.head, bad.main); }), MismatchText(bad)) << at;
    ++compared;
  }
  EXPECT_EQ(compared, 11);
}

TEST(Para2HeadCrc, TheMismatchTextHasUnsignedDecimals) {
  const Bytes head(136, 0xFF);
  const std::string head_crc = std::to_string(BitSerialCrc(head.data(), 128));
  EXPECT_EQ(ThrownText([&] { VerifyHeadCrc(head, {}); }),
            "para2 head checksum verify failed (para2_crc stored=4294967295 calc=0, head128_crc "
            "stored=4294967295 calc=" +
                head_crc + ")");
}

TEST(Para2HeadCrc, AnEmptyMainBlobHasTheChecksumZeroAndIsRefusedForItsSize) {
  SamplePara2 sample = MakeSample("QNDR_003", 512);
  sample.main.clear();
  Seal(sample);
  EXPECT_EQ(sample.head[128] + sample.head[129] + sample.head[130] + sample.head[131], 0);
  EXPECT_NO_THROW(VerifyHeadCrc(sample.head, sample.main));
  EXPECT_EQ(ThrownText([&] { Unpack(sample.main); }), "para2 main bin too short: 0 < 168960");
}

TEST(Para2Unpack, OneByteTooFewIsRefusedWithBothNumbers) {
  EXPECT_EQ(ThrownText([] { Unpack(Bytes(kMainSize - 1)); }),
            "para2 main bin too short: 168959 < 168960");
  EXPECT_NO_THROW(Unpack(Bytes(kMainSize)));
}

TEST(Para2Unpack, TablesHaveTheirSizesAndBytesBehindThemAreNotRead) {
  Bytes main = MakeSample("Q").main;
  const Para2LidarCalib exact = Unpack(main);
  main.resize(kMainSize + 300, 0xAA);
  const Para2LidarCalib longer = Unpack(main);
  EXPECT_EQ(exact.dist_offset.size(), 82944U);
  EXPECT_EQ(exact.retro_scale.size(), 82944U);
  EXPECT_EQ(exact.dist_curve.size(), 512U);
  EXPECT_EQ(exact.dist_curve_high.size(), 512U);
  EXPECT_EQ(exact.retro_curve.size(), 512U);
  EXPECT_EQ(exact.dist_offset, longer.dist_offset);
  EXPECT_EQ(exact.retro_curve, longer.retro_curve);
}

TEST(Para2Unpack, TheOffsetsBaseFallsWithEachGroupOfEightTileColumns) {
  Bytes main(kMainSize, 0);
  // First and last pixel of each group in the first row of tiles, and the next row's beginning.
  for (std::size_t group = 0; group < 6; ++group) {
    main[kOffsets + group * 8 * 36] = 1;
    main[kOffsets + group * 8 * 36 + 8 * 36 - 1] = 255;
  }
  main[kOffsets + 36 * 47] = 1;
  main[kOffsets + 36 * 48] = 1;
  main[kOffsets + 82943] = 1;
  const std::vector<float> offset = Unpack(main).dist_offset;
  const float bases[] = {1032.0F, 964.0F, 896.0F, 828.0F, 760.0F, 692.0F};
  for (std::size_t group = 0; group < 6; ++group) {
    EXPECT_EQ(offset[group * 288], bases[group] + 1.0F) << group;
    EXPECT_EQ(offset[group * 288 + 287], bases[group] + 255.0F) << group;
  }
  EXPECT_EQ(offset[0], 1033.0F);
  EXPECT_EQ(offset[36 * 47], 693.0F);
  EXPECT_EQ(offset[36 * 48], 1033.0F);
  EXPECT_EQ(offset[82943], 693.0F);
  EXPECT_EQ(offset[1], 0.0F);  // a zero byte marks the pixel, without the base
}

TEST(Para2Unpack, TheTileValuesComeFromTheCaller) {
  Bytes main(kMainSize, 1);
  // Tiles of one pixel, sixteen to a row: the base falls once at pixel 8.
  const std::vector<float> offset = Unpack(main, 1, 16).dist_offset;
  EXPECT_EQ(offset[7], 1033.0F);
  EXPECT_EQ(offset[8], 965.0F);
  EXPECT_EQ(offset[16], 1033.0F);
}

TEST(Para2Unpack, ATileValueOfZeroIsRefused) {
  EXPECT_EQ(ThrownText([] { Unpack(Bytes(kMainSize), 0, 48); }),
            "para2 tile layout invalid: tile_pixels=0 tile_columns=48");
  EXPECT_EQ(ThrownText([] { Unpack(Bytes(kMainSize), 36, 0); }),
            "para2 tile layout invalid: tile_pixels=36 tile_columns=0");
  EXPECT_NO_THROW(Unpack(Bytes(kMainSize, 1), -1, -1));
}

TEST(Para2Unpack, ScalesAreThirtySeconds) {
  Bytes main(kMainSize, 0);
  main[kScales] = 1;
  main[kScales + 1] = 32;
  main[kScales + 82943] = 255;
  const std::vector<float> scale = Unpack(main).retro_scale;
  EXPECT_EQ(scale[0], 0.03125F);
  EXPECT_EQ(scale[1], 1.0F);
  EXPECT_EQ(scale[2], 0.0F);
  EXPECT_EQ(scale[82943], 7.96875F);
}

TEST(Para2Unpack, CurvesAreSignedAndOnlyTheRetroCurveIsScaled) {
  Bytes main(kMainSize, 0);
  for (std::size_t curve : {kCurve, kCurveHigh, kRetroCurve}) {
    StoreI16(main, curve, -1);
    StoreI16(main, curve + 2, 0x1234);
    StoreI16(main, curve + 2 * 511, -32768);
  }
  StoreI16(main, kCurveHigh + 4, 77);
  const Para2LidarCalib calib = Unpack(main);
  EXPECT_EQ(calib.dist_curve[0], -1.0F);
  EXPECT_EQ(calib.dist_curve[1], 4660.0F);
  EXPECT_EQ(calib.dist_curve[511], -32768.0F);
  EXPECT_EQ(calib.dist_curve_high[0], -1.0F);
  EXPECT_EQ(calib.dist_curve_high[2], 77.0F);
  EXPECT_EQ(calib.dist_curve[2], 0.0F);
  EXPECT_EQ(calib.retro_curve[0], -0.0009765625F);
  EXPECT_EQ(calib.retro_curve[1], 4.55078125F);
  EXPECT_EQ(calib.retro_curve[511], -32.0F);
}

Bytes HeadWithId(const std::string& id_bytes) {
  Bytes head(256, 0xFF);
  std::copy(id_bytes.begin(), id_bytes.end(), head.begin());
  return head;
}

TEST(Para2LidarId, EndsAtTheFirstEndMark) {
  EXPECT_EQ(ParseLidarId(HeadWithId("ABCDE\xFF"
                                    "FGH")),
            "ABCDE");
  EXPECT_EQ(ParseLidarId(HeadWithId("A")), "A");
  EXPECT_EQ(ParseLidarId(HeadWithId("1234567890123456789")), "1234567890123456789");
}

TEST(Para2LidarId, TakesAllTwentyBytesWithoutAnEndMark) {
  EXPECT_EQ(ParseLidarId(HeadWithId("12345678901234567890XYZ")), "12345678901234567890");
}

TEST(Para2LidarId, AnEndMarkInTheFirstPlaceGivesEightBytesAsTheyAre) {
  EXPECT_EQ(ParseLidarId(HeadWithId("\xFF"
                                    "BCD\xFF"
                                    "FGHIJ")),
            "\xFF"
            "BCD\xFF"
            "FGH");
  EXPECT_EQ(ParseLidarId(Bytes(256, 0xFF)), std::string(8, '\xFF'));
}

TEST(Para2LidarId, ControlAndZeroBytesAreKept) {
  const std::string id("A\x01\0\nB", 5);
  EXPECT_EQ(ParseLidarId(HeadWithId(id)), id);
}

TEST(Para2LidarId, AHeadBelowTwentyBytesHasNone) {
  EXPECT_EQ(ParseLidarId(Bytes(19, 'A')), "");
  EXPECT_EQ(ParseLidarId({}), "");
  EXPECT_EQ(ParseLidarId(Bytes(20, 'A')), std::string(20, 'A'));
}

TEST(Para2LidarCalibRecord, AFreshRecordSaysOnline) {
  EXPECT_EQ(Para2LidarCalib{}.source, Para2CalibSource::kOnline);
  EXPECT_EQ(static_cast<int>(Para2CalibSource::kLocalCache), 0);
  EXPECT_EQ(static_cast<int>(Para2CalibSource::kOnline), 1);
  EXPECT_EQ(static_cast<int>(Para2CalibSource::kFallback), 2);
}

}  // namespace
}  // namespace kerul::lidar
