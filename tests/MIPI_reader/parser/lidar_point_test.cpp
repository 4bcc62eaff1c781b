#include "MIPI_reader/parser/lidar_point.h"

#include <gtest/gtest.h>

namespace kerul::lidar {
namespace {

TEST(LidarPoint, AFreshPointHoldsTheDefaults) {
  const LidarPoint point;
  EXPECT_EQ(point.shot_times, 160.0F);
  EXPECT_EQ(point.shot_ratio, 1.0F);
  for (const LidarEcho& echo : point.echoes) {
    EXPECT_TRUE(echo.detect_pass);
    EXPECT_EQ(echo.ground_refl_scale, 1.0F);
    EXPECT_EQ(echo.dist_raw, 0.0F);
  }
}

LidarPoint FilledPoint() {
  LidarPoint point;
  point.row = 7;
  point.col = 11;
  point.pixel_word22 = 3.0F;
  point.pixel_word11 = 4.0F;
  point.shot_times = 80.0F;
  point.shot_ratio = 0.5F;
  point.detect_threshold = 9.0F;
  for (LidarEcho& echo : point.echoes) {
    echo.dist_raw = 4.0F;
    echo.cogw_flag = 3;
    echo.debug_flag = true;
    echo.ground_refl_scale = 0.5F;
    echo.detect_pass = false;
    echo.bins[16] = 99;
  }
  return point;
}

TEST(LidarPoint, ResetLeavesPlaceDebugFlagAndGroundScale) {
  LidarPoint::echo_num = 2;
  LidarPoint point = FilledPoint();
  point.ResetEchoes();
  EXPECT_EQ(point.row, 7);
  EXPECT_EQ(point.col, 11);
  EXPECT_EQ(point.pixel_word22, 0.0F);
  EXPECT_EQ(point.pixel_word11, 0.0F);
  EXPECT_EQ(point.shot_times, 160.0F);
  EXPECT_EQ(point.shot_ratio, 1.0F);
  EXPECT_EQ(point.detect_threshold, 0.0F);
  for (const LidarEcho& echo : point.echoes) {
    EXPECT_EQ(echo.dist_raw, 0.0F);
    EXPECT_EQ(echo.cogw_flag, 0);
    EXPECT_TRUE(echo.debug_flag);
    EXPECT_EQ(echo.ground_refl_scale, 0.5F);
    EXPECT_TRUE(echo.detect_pass);
    EXPECT_EQ(echo.bins[16], 0);
  }
}

TEST(LidarPoint, ResetTouchesOnlyTheEchoSlotsInUse) {
  LidarPoint::echo_num = 1;
  LidarPoint point = FilledPoint();
  point.ResetEchoes();
  EXPECT_EQ(point.echoes[0].dist_raw, 0.0F);
  EXPECT_EQ(point.echoes[1].dist_raw, 4.0F);
}

TEST(LidarFrame, BuildingOneSetsSizesMaskAndEchoNumber) {
  const LidarFrame frame(216, 288, 2);
  EXPECT_EQ(frame.points.size(), 216U);
  EXPECT_EQ(frame.points[215].size(), 288U);
  EXPECT_EQ(frame.pixel_mask.size(), 36U * 48U * 4U);
  EXPECT_EQ(LidarPoint::echo_num, 2);
}

TEST(LidarFrame, ResetLeavesFrameIdAndSizes) {
  LidarFrame frame(6, 12, 2);
  frame.frame_id = 17;
  frame.received_count = 5;
  frame.pixel_mask[3] = true;
  frame.points[5][11] = FilledPoint();
  frame.Reset();
  EXPECT_EQ(frame.frame_id, 17);
  EXPECT_EQ(frame.received_count, 0);
  EXPECT_FALSE(frame.pixel_mask[3]);
  EXPECT_EQ(frame.points[5][11].row, 7);
  EXPECT_EQ(frame.points[5][11].echoes[1].dist_raw, 0.0F);
  EXPECT_EQ(frame.points[5][11].echoes[1].ground_refl_scale, 0.5F);
}

TEST(LidarFrame, ResetOfEmptyGridsIsHarmless) {
  LidarFrame no_rows(0, 0, 2);
  no_rows.Reset();
  LidarFrame empty_row(2, 0, 2);
  empty_row.Reset();
  EXPECT_EQ(empty_row.points.size(), 2U);
}

}  // namespace
}  // namespace kerul::lidar
