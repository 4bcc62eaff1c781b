// Ranges below zero in the bloom suppression.
#include <gtest/gtest.h>

#include "MIPI_reader/node/bloom/bloom_suppression.h"
#include "MIPI_reader/node/bloom/bloom_trace.h"
#include "bloom_frame.h"

namespace kerul::lidar {
namespace {

using bloom_test::EchoAt;
using bloom_test::PutEcho;
using bloom_test::PutSource;

// Whether an echo 0.125 m beyond a source of that range is marked.
bool IsMarked(float source_range, float source_min_dist) {
  LidarFrame frame{18, 18, 2};
  BloomSuppressCalib calib = bloom_test::PlainCalib();
  calib.source_min_dist_m = source_min_dist;
  PutSource(frame, 8, 8, source_range, 40.0F);
  PutEcho(frame, 9, 9, source_range + 0.125F, 80.0F);
  SuppressBlooming(frame, 1, calib, true, BloomTrace{});
  return EchoAt(frame, 9, 9).highReflBlooming;
}

TEST(BloomOddRanges, WithoutASmallestRangeANegativeSourceCounts) {
  EXPECT_TRUE(IsMarked(-10.0F, 0.0F));
  EXPECT_TRUE(IsMarked(-10.0F, -1.0F));
  EXPECT_TRUE(IsMarked(0.5F, 0.0F));
}

TEST(BloomOddRanges, WithASmallestRangeOnlySourcesBeyondItCount) {
  EXPECT_FALSE(IsMarked(-10.0F, 0.25F));
  EXPECT_FALSE(IsMarked(0.25F, 0.25F));
  EXPECT_TRUE(IsMarked(0.5F, 0.25F));
}

}  // namespace
}  // namespace kerul::lidar
