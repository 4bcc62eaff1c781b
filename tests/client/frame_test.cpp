#include "kerul_lidar/frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kerul_lidar/point_payload.h"

namespace kerul::lidar {
namespace {

// A collected frame of no returns but those that a test sets.
CollectedFrame Empty(int mode, int echoes = 1) {
  CollectedFrame collected;
  collected.key.frame_id = 41;
  collected.key.output_mode = mode;
  collected.key.echoes = echoes;
  for (int echo = 0; echo < echoes; ++echo) collected.present[static_cast<std::size_t>(echo)].set();
  return collected;
}

void Set(CollectedFrame& collected, std::size_t place, std::uint16_t distance,
         std::array<std::uint8_t, 3> payload) {
  collected.points[place] = {distance, payload};
}

Directions AllAhead() {
  Directions directions;
  directions.unit.assign(62208, {1.0F, 0.0F, 0.0F});
  return directions;
}

TEST(Frame, PlanesHoldAPixelWhereItsEchoRowAndColumnSay) {
  CollectedFrame collected = Empty(0, 2);
  const std::size_t first = 3 * 288 + 7;
  const std::size_t second = 216 * 288 + 3 * 288 + 7;
  EXPECT_EQ(Frame::Index(0, 3, 7), first);
  EXPECT_EQ(Frame::Index(1, 3, 7), second);
  Set(collected, first, 250, {80, 1, 0x80});
  Set(collected, second, 2500, {90, 2, 3});
  Frame frame;
  FillFrame(collected, nullptr, nullptr, frame);
  EXPECT_EQ(frame.PointCount(), 124416U);
  EXPECT_EQ(frame.range_m[first], 1.0F);  // 250 units of 4 mm
  EXPECT_EQ(frame.range_m[second], 10.0F);
  EXPECT_EQ(frame.range_m[0], 0.0F);
  EXPECT_EQ(frame.reflectivity[first], 80);
  EXPECT_EQ(frame.reflectivity[second], 90);
  EXPECT_TRUE(frame.HasFlag(first, point_flag::kGround));
  EXPECT_FALSE(frame.HasFlag(second, point_flag::kGround));
  EXPECT_EQ(frame.known_flags, 1 << point_flag::kGround);
  const std::array<std::uint8_t, 3> published{90, 2, 3};
  EXPECT_EQ(std::memcmp(&frame.payload[3 * second], published.data(), 3), 0);
}

TEST(Frame, SaysWhichFrameItIsWhenAndWhatIsMissing) {
  CollectedFrame collected = Empty(12);
  collected.present[0].reset(1727);
  collected.return_code = 34;
  collected.first_timestamp_us = 1000;
  collected.last_timestamp_us = 90000;
  collected.row_timestamp_us[35] = 88000;
  collected.missing_ids_before = 2;
  Frame frame;
  FillFrame(collected, nullptr, nullptr, frame);
  EXPECT_EQ(frame.id, 41);
  EXPECT_EQ(frame.echoes, 1);
  EXPECT_EQ(frame.return_code, 34);
  EXPECT_EQ(frame.output_mode, 12);
  EXPECT_EQ(frame.carries, CarriedFields(12));
  EXPECT_EQ(frame.first_timestamp_us, 1000);
  EXPECT_EQ(frame.last_timestamp_us, 90000);
  EXPECT_EQ(frame.row_timestamp_us[34], 0);
  EXPECT_EQ(frame.row_timestamp_us[35], 88000);
  EXPECT_EQ(frame.missing_blocks, 1);
  EXPECT_FALSE(frame.IsComplete());
  EXPECT_EQ(frame.missing_frames, 2);
}

TEST(Frame, AnEchoThatIsNoLongerPublishedReadsAsNoReturn) {
  const std::size_t second = Frame::Index(1, 3, 7);
  CollectedFrame two = Empty(12, 2);
  Set(two, second, 250, {80, 0xFF, 0xFF});
  const Directions directions = AllAhead();
  Frame frame;
  FillFrame(two, &directions, nullptr, frame);
  ASSERT_EQ(frame.x_m[second], 1.0F);
  FillFrame(Empty(12, 1), &directions, nullptr, frame);
  EXPECT_EQ(frame.range_m[second], 0.0F);
  EXPECT_EQ(frame.reflectivity[second], 0);
  EXPECT_EQ(frame.flags[second], 0);
  EXPECT_EQ(frame.payload[3 * second], 0);
  EXPECT_TRUE(std::isnan(frame.x_m[second]));
  Frame fresh;
  FillFrame(Empty(12, 1), &directions, nullptr, fresh);
  EXPECT_TRUE(std::isnan(fresh.x_m[second])) << "nor is it a point of a first frame";
}

TEST(Frame, AModeWithoutReflectivityHasNone) {
  CollectedFrame collected = Empty(4);
  Set(collected, 5, 250, {80, 81, 82});
  Frame frame;
  FillFrame(collected, nullptr, nullptr, frame);
  EXPECT_EQ(frame.reflectivity[5], 0);
  EXPECT_EQ(frame.flags[5], 0);
  EXPECT_EQ(frame.known_flags, 0);
  EXPECT_EQ(frame.payload[15], 80);
}

TEST(Frame, PointsLieAtTheirRangeAlongTheirDirection) {
  CollectedFrame collected = Empty(0, 2);
  Set(collected, 9, 2500, {});
  Set(collected, 62208 + 9, 250, {});
  Directions directions = AllAhead();
  directions.unit[9] = {0.6F, 0.0F, -0.8F};
  Frame frame;
  FillFrame(collected, &directions, nullptr, frame);
  ASSERT_TRUE(frame.HasPoints());
  EXPECT_FLOAT_EQ(frame.x_m[9], 6.0F);
  EXPECT_FLOAT_EQ(frame.y_m[9], 0.0F);
  EXPECT_FLOAT_EQ(frame.z_m[9], -8.0F);
  EXPECT_FLOAT_EQ(frame.x_m[62208 + 9], 0.6F) << "the second echo looks the same way";
}

TEST(Frame, PixelsWithoutReturnOrDirectionAreNoPoints) {
  CollectedFrame collected = Empty(0);
  Set(collected, 9, 2500, {});
  Directions directions = AllAhead();
  directions.unit[9] = {};
  Frame frame;
  FillFrame(collected, &directions, nullptr, frame);
  EXPECT_TRUE(std::isnan(frame.x_m[8]) && std::isnan(frame.y_m[8]) && std::isnan(frame.z_m[8]));
  EXPECT_TRUE(std::isnan(frame.x_m[9]));
  FillFrame(collected, nullptr, nullptr, frame);
  EXPECT_FALSE(frame.HasPoints()) << "directions are gone";
}

TEST(Frame, TheMountingTurnsThenMoves) {
  CollectedFrame collected = Empty(0);
  Set(collected, 0, 250, {});
  const Directions directions = AllAhead();
  TransformParam mount;
  mount.x = 10.0;
  mount.y = 20.0;
  mount.z = 30.0;
  // x' = -y, y' = x, z' = z: one metre ahead is one metre to the left.
  const double quarter_turn[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
  std::copy(std::begin(quarter_turn), std::end(quarter_turn), mount.rotation);
  Frame frame;
  FillFrame(collected, &directions, &mount, frame);
  EXPECT_FLOAT_EQ(frame.x_m[0], 10.0F);
  EXPECT_FLOAT_EQ(frame.y_m[0], 21.0F);
  EXPECT_FLOAT_EQ(frame.z_m[0], 30.0F);
  EXPECT_TRUE(std::isnan(frame.x_m[1])) << "what is no point does not move";
}

}  // namespace
}  // namespace kerul::lidar
