#include "support/las_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace kerul::lidar {
namespace {

constexpr std::size_t kHeaderBytes = 227;
constexpr std::size_t kRecordBytes = 28;
// 2023-11-14 22:13:20.25 UTC: day 318 of the year.
constexpr std::int64_t kTimestampUs = 1700000000250000;

template <class T>
T At(const std::vector<char>& bytes, std::size_t offset) {
  T value{};
  EXPECT_LE(offset + sizeof value, bytes.size());
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

std::string Piece(const std::vector<char>& bytes, std::size_t offset, std::size_t size) {
  return std::string(bytes.begin(), bytes.end()).substr(offset, size);
}

// Pixel (3, 258) has two echoes, the second one nearer; (215, 287) has one, on the ground.
const std::vector<CloudPoint> kPoints{{1.0F, -2.0F, 0.5F, 200.0F, 3, 258, 0, 0},
                                      {4.0F, 5.0F, -1.25F, 7.0F, 215, 287, 0, 1},
                                      {0.5F, -1.0F, 0.25F, 255.0F, 3, 258, 1, 0}};

TEST(LasFile, HeaderHoldsTheFormatsFields) {
  const std::vector<char> las =
      EncodeLas(kPoints, {.ground_known = true, .timestamp_us = kTimestampUs});
  ASSERT_EQ(las.size(), kHeaderBytes + 3 * kRecordBytes);
  EXPECT_EQ(Piece(las, 0, 4), "LASF");
  // File source 0, standard GPS time, no project, version 1.2.
  EXPECT_EQ(Piece(las, 4, 22),
            std::string("\0\0\1\0", 4) + std::string(16, '\0') + std::string("\1\2", 2));
  EXPECT_EQ(Piece(las, 26, 32), "kerul lidar" + std::string(21, '\0'));
  EXPECT_EQ(Piece(las, 58, 32), "kerul_lidar_node" + std::string(16, '\0'));
  // Day 318 of 2023, 227 bytes of header, points at 227, no records, format 1 of 28 bytes, 3
  // points.
  EXPECT_EQ(Piece(las, 90, 21),
            std::string("\x3E\x01\xE7\x07\xE3\x00\xE3\x00\x00\x00\x00\x00\x00\x00\x01\x1C\x00"
                        "\x03\x00\x00\x00",
                        21));
  EXPECT_EQ(Piece(las, 111, 20), std::string("\2\0\0\0\1\0\0\0", 8) + std::string(12, '\0'));
  for (std::size_t axis = 0; axis < 3; ++axis) {
    EXPECT_EQ(At<double>(las, 131 + 8 * axis), 0.001);
    EXPECT_EQ(At<double>(las, 155 + 8 * axis), 0.0);
  }
}

TEST(LasFile, BoundsAreThoseOfTheStoredSteps) {
  const std::vector<char> las = EncodeLas(kPoints, {});
  const double expected[] = {4000 * 0.001,  500 * 0.001, 5000 * 0.001,
                             -2000 * 0.001, 500 * 0.001, -1250 * 0.001};
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(At<double>(las, 179 + 8 * i), expected[i]) << i;
}

TEST(LasFile, APointsBytesAreAsWorkedOutByHand) {
  const std::vector<char> las =
      EncodeLas(kPoints, {.ground_known = true, .timestamp_us = kTimestampUs});
  // 4000, 5000, -1250 mm; 7 * 256; return 1 of 1; ground; angle, user data and source 0.
  EXPECT_EQ(Piece(las, kHeaderBytes + kRecordBytes, 20),
            std::string("\xA0\x0F\x00\x00\x88\x13\x00\x00\x1E\xFB\xFF\xFF\x00\x07\x09\x02"
                        "\x00\x00\x00\x00",
                        20));
  // 1700000000.25 - 315964800 + 18 - 1e9.
  EXPECT_EQ(At<double>(las, kHeaderBytes + kRecordBytes + 20), 384035218.25);
}

TEST(LasFile, ReturnNumbersAreTheEchoesOfThePixel) {
  const std::vector<char> las = EncodeLas(kPoints, {});
  EXPECT_EQ(At<std::uint8_t>(las, kHeaderBytes + 14), 1 + 2 * 8);                     // 1 of 2
  EXPECT_EQ(At<std::uint8_t>(las, kHeaderBytes + kRecordBytes + 14), 1 + 1 * 8);      // 1 of 1
  EXPECT_EQ(At<std::uint8_t>(las, kHeaderBytes + 2 * kRecordBytes + 14), 2 + 2 * 8);  // 2 of 2
}

TEST(LasFile, ClassesTellTheGroundOnlyWhereItIsKnown) {
  const auto classes = [](bool ground_known) {
    const std::vector<char> las = EncodeLas(kPoints, {.ground_known = ground_known});
    std::vector<int> values;
    for (std::size_t i = 0; i < 3; ++i) {
      values.push_back(At<std::uint8_t>(las, kHeaderBytes + i * kRecordBytes + 15));
    }
    return values;
  };
  EXPECT_EQ(classes(true), (std::vector<int>{1, 2, 1}));
  EXPECT_EQ(classes(false), (std::vector<int>{0, 0, 0}));
}

TEST(LasFile, WithoutATimeThereIsNoDateAndNoGpsTime) {
  const std::vector<char> las = EncodeLas(kPoints, {});
  EXPECT_EQ(At<std::uint16_t>(las, 6), 0);
  EXPECT_EQ(At<std::uint32_t>(las, 90), 0U);
  EXPECT_EQ(At<double>(las, kHeaderBytes + 20), 0.0);
}

TEST(LasFile, CoordinatesAreRoundedAndIntensitiesCut) {
  const std::vector<CloudPoint> points{{0.0004F, 0.0006F, -0.0006F, 300.0F, 0, 0, 0, 0},
                                       {0.0F, 0.0F, 0.0F, -1.0F, 0, 1, 0, 0}};
  const std::vector<char> las = EncodeLas(points, {});
  EXPECT_EQ(At<std::int32_t>(las, kHeaderBytes), 0);
  EXPECT_EQ(At<std::int32_t>(las, kHeaderBytes + 4), 1);
  EXPECT_EQ(At<std::int32_t>(las, kHeaderBytes + 8), -1);
  EXPECT_EQ(At<std::uint16_t>(las, kHeaderBytes + 12), 65535);
  EXPECT_EQ(At<std::uint16_t>(las, kHeaderBytes + kRecordBytes + 12), 0);
}

TEST(LasFile, PointsThatTheFormatCannotHoldAreLeftOut) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  const std::vector<CloudPoint> points{{nan, 0, 0, 1, 0, 0, 0, 0},
                                       {0, infinity, 0, 1, 0, 1, 0, 0},
                                       {0, 0, 2147484.0F, 1, 0, 2, 0, 0},
                                       {1, 2, 3, nan, 0, 3, 0, 0}};
  const std::vector<char> las = EncodeLas(points, {});
  ASSERT_EQ(las.size(), kHeaderBytes + kRecordBytes);
  EXPECT_EQ(At<std::uint32_t>(las, 107), 1U);
  EXPECT_EQ(At<std::int32_t>(las, kHeaderBytes), 1000);
  EXPECT_EQ(At<std::uint16_t>(las, kHeaderBytes + 12), 0);
}

TEST(LasFile, AnEmptyCloudIsAHeader) {
  const std::vector<char> las = EncodeLas({}, {});
  ASSERT_EQ(las.size(), kHeaderBytes);
  EXPECT_EQ(At<std::uint32_t>(las, 107), 0U);
}

}  // namespace
}  // namespace kerul::lidar
