#include "lidar_record/cloud_points.h"

#include <gtest/gtest.h>

#include <cmath>

#include "ros_messages/cdr_writer.h"
#include "ros_messages/frame_messages.h"
#include "tools/ros_messages/sample_frame.h"

namespace kerul::lidar::record {
namespace {

// Echo 0 at row 10, column 20, on the ground; echo 1 at row 215, column 287.
std::vector<std::uint8_t> SampleMessage() {
  Frame frame = ros::EmptyFrame(2);
  ros::SetReturn(frame, 0, 10, 20, 12.0F, 77, 0x1041);
  ros::SetReturn(frame, 1, 215, 287, 30.0F, 255);
  std::vector<std::uint8_t> message;
  ros::MessageOptions options;
  options.echoes = ros::EchoChoice::kBoth;
  ros::FrameMessages(options).WriteCloud(frame, message);
  return message;
}

ros::CloudView View(const std::vector<std::uint8_t>& message) {
  ros::CloudView cloud;
  std::string error;
  EXPECT_TRUE(ros::ParseCloud(message, cloud, error)) << error;
  return cloud;
}

TEST(CloudPoints, PointsWithAPlaceComeBackWithWhatTheyCarry) {
  const auto message = SampleMessage();
  std::vector<CloudPoint> points;
  std::string error;
  ASSERT_TRUE(MakePoints(View(message), points, error)) << error;
  ASSERT_EQ(points.size(), 2U);
  EXPECT_EQ(points[0].x, 12.0F);
  EXPECT_EQ(points[0].intensity, 77.0F);
  EXPECT_EQ(points[0].row, 10);
  EXPECT_EQ(points[0].col, 20);
  EXPECT_EQ(points[0].echo, 0);
  EXPECT_EQ(points[0].ground, 1);
  EXPECT_EQ(points[1].row, 215);
  EXPECT_EQ(points[1].echo, 1);
  EXPECT_EQ(points[1].ground, 0);
}

TEST(CloudPoints, TheFrameHasRangesAndFlagsAtTheirPixels) {
  const auto message = SampleMessage();
  CollectedFrame frame;
  std::string error;
  ASSERT_TRUE(MakeFrame(View(message), frame, error)) << error;
  EXPECT_EQ(frame.key.echoes, 2);
  const FramePoint& point = frame.At(0, 10, 20);
  EXPECT_EQ(point.distance, 3000);
  EXPECT_EQ(point.payload[0], 77);
  EXPECT_EQ(point.payload[1], 0x41);
  EXPECT_EQ(point.payload[2], 0x10);
  EXPECT_EQ(frame.At(1, 215, 287).distance, 7500);
  EXPECT_EQ(frame.At(0, 215, 287).distance, 0);
}

// A cloud of one point with doubles, as other programs may write it.
ros::CloudView WildPoint(double value, std::vector<double>& data) {
  ros::CloudView cloud;
  cloud.height = cloud.width = 1;
  cloud.point_step = cloud.row_step = 64;
  data.assign(8, value);
  const char* names[] = {"x", "y", "z", "row", "col", "echo", "range", "intensity"};
  for (std::uint32_t i = 0; i < 8; ++i) cloud.fields.push_back({names[i], 8 * i, 8, 1});
  cloud.data = {reinterpret_cast<const std::uint8_t*>(data.data()), 64};
  return cloud;
}

TEST(CloudPoints, NumbersThatAFrameCannotHoldDoNoHarm) {
  std::vector<double> data;
  std::string error;
  std::size_t tried = 0;
  for (const double value : {-1.0, 1e300, -1e300, 65536.0, 2147483648.0, double(NAN),
                             double(INFINITY), -double(INFINITY)}) {
    const ros::CloudView cloud = WildPoint(value, data);
    CollectedFrame frame;
    std::vector<CloudPoint> points;
    EXPECT_TRUE(MakeFrame(cloud, frame, error));
    EXPECT_TRUE(MakePoints(cloud, points, error));
    ASSERT_EQ(points.size(), std::isfinite(static_cast<float>(value)) ? 1U : 0U) << value;
    if (!points.empty()) {
      EXPECT_EQ(points[0].row, value < 0.0 ? 0 : 65535) << value;
      EXPECT_EQ(points[0].echo, value < 0.0 ? 0 : 255) << value;
    }
    EXPECT_EQ(frame.At(0, 0, 0).distance, 0) << value;
    ++tried;
  }
  EXPECT_EQ(tried, 8U);
}

TEST(CloudPoints, ACloudWithoutTheFieldsIsRefused) {
  std::vector<double> data;
  ros::CloudView cloud = WildPoint(1.0, data);
  cloud.fields[2].name = "w";
  cloud.fields[3].name = "ring";
  std::vector<CloudPoint> points;
  CollectedFrame frame;
  std::string error;
  EXPECT_FALSE(MakePoints(cloud, points, error));
  EXPECT_EQ(error, "the cloud has no x, y and z");
  EXPECT_FALSE(MakeFrame(cloud, frame, error));
  EXPECT_EQ(error, "the cloud has no range, row and col");
}

}  // namespace
}  // namespace kerul::lidar::record
