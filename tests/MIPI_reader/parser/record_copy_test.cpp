#include "MIPI_reader/parser/record_copy.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace kerul::lidar {
namespace {

TEST(CopyPoints, CopiesEveryByteAndNoMore) {
  std::array<unsigned char, sizeof(LidarPoint)> bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<unsigned char>(i % 251 & 1U);
  // Every second byte is set: the bytes of flags are sound values, those of floats are any.
  LidarPoint from;
  std::memcpy(&from, bytes.data(), bytes.size());
  std::array<LidarPoint, 3> to{};
  std::memset(static_cast<void*>(to.data()), 0, sizeof(to));
  LidarPoint* const place = &to[1];
  CopyPoints(&from, &place, 1);
  EXPECT_EQ(std::memcmp(&to[1], &from, sizeof(from)), 0);
  std::array<unsigned char, sizeof(LidarPoint)> zeros{};
  EXPECT_EQ(std::memcmp(&to[0], zeros.data(), zeros.size()), 0);
  EXPECT_EQ(std::memcmp(&to[2], zeros.data(), zeros.size()), 0);
}

TEST(CopyRecord, CopiesAnEchoToAnyAddress) {
  LidarPoint point;
  LidarEcho echo;
  echo.dist_raw = 1.5F;
  echo.bins.fill(7);
  echo.bins.back() = 8;
  CopyRecord<16>(point.echoes[1], echo);
  EXPECT_EQ(point.echoes[1].dist_raw, 1.5F);
  EXPECT_EQ(point.echoes[1].bins, echo.bins);
  EXPECT_EQ(point.echoes[0].dist_raw, 0.0F);
}

}  // namespace
}  // namespace kerul::lidar
