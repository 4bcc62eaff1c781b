#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "ros_messages/cloud_point.h"
#include "ros_messages/frame_messages.h"
#include "tools/ros_messages/sample_frame.h"

namespace kerul::lidar::ros {
namespace {

using Bytes = std::vector<std::uint8_t>;

void Append(Bytes& bytes, std::initializer_list<int> values) {
  for (const int value : values) bytes.push_back(static_cast<std::uint8_t>(value));
}

void AppendText(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
}

Bytes CloudOf(const Frame& frame, const MessageOptions& options) {
  Bytes message(3, 0xEE);  // what was there before
  FrameMessages(options).WriteCloud(frame, message);
  return message;
}

// Reads a cloud whose frame id has three letters: there the offsets of the test below hold.
struct Cloud {
  std::uint32_t height;
  std::uint32_t width;
  std::uint32_t row_step;
  bool is_dense;
  std::vector<CloudPoint> points;
};

Cloud Read(const Bytes& message) {
  Cloud cloud{};
  std::uint32_t length = 0;
  std::memcpy(&cloud.height, &message.at(20), 4);
  std::memcpy(&cloud.width, &message.at(24), 4);
  std::memcpy(&cloud.row_step, &message.at(264), 4);
  std::memcpy(&length, &message.at(268), 4);
  EXPECT_EQ(message.size(), 272U + length + 1U);
  cloud.points.resize(length / 32);
  if (length > 0) std::memcpy(cloud.points.data(), &message.at(272), length);
  cloud.is_dense = message.back() != 0;
  return cloud;
}

MessageOptions Options() {
  MessageOptions options;
  options.frame_id = "map";
  return options;
}

TEST(CloudMessage, EveryByteIsWhereCdrPutsIt) {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 0, 0, 3.0F, 80, 0x1240);
  frame.x_m[0] = 1.0F;
  frame.y_m[0] = 2.5F;
  frame.z_m[0] = -0.5F;
  frame.row_timestamp_us[0] = frame.first_timestamp_us + 500'000;
  MessageOptions options = Options();
  options.every_row = 216;
  options.every_col = 288;

  Bytes expected;
  Append(expected, {0, 1, 0, 0});
  Append(expected, {0x00, 0xF1, 0x53, 0x65});  // 1700000000 s
  Append(expected, {0x80, 0xB2, 0xE6, 0x0E});  // 250000000 ns
  Append(expected, {4, 0, 0, 0, 'm', 'a', 'p', 0});
  Append(expected, {1, 0, 0, 0, 1, 0, 0, 0});  // height, width
  Append(expected, {10, 0, 0, 0});             // fields: name, offset, datatype, count
  Append(expected, {2, 0, 0, 0, 'x', 0, 0, 0, 0, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {2, 0, 0, 0, 'y', 0, 0, 0, 4, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {2, 0, 0, 0, 'z', 0, 0, 0, 8, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {10, 0, 0, 0});
  AppendText(expected, "intensity");
  Append(expected, {0, 0, 0, 12, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {6, 0, 0, 0, 'r', 'a', 'n', 'g', 'e', 0, 0, 0});
  Append(expected, {16, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {4, 0, 0, 0, 'r', 'o', 'w', 0, 20, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {4, 0, 0, 0, 'c', 'o', 'l', 0, 22, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {5, 0, 0, 0, 'e', 'c', 'h', 'o', 0, 0, 0, 0});
  Append(expected, {24, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {6, 0, 0, 0, 'f', 'l', 'a', 'g', 's', 0, 0, 0});
  Append(expected, {26, 0, 0, 0, 4, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {5, 0, 0, 0, 't', 'i', 'm', 'e', 0, 0, 0, 0});
  Append(expected, {28, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0});
  Append(expected, {0, 0, 0, 0});                // little-endian, three bytes of alignment
  Append(expected, {32, 0, 0, 0, 32, 0, 0, 0});  // bytes of a point, of a line
  Append(expected, {32, 0, 0, 0});               // bytes of data
  Append(expected, {0x00, 0x00, 0x80, 0x3F});    // x 1.0
  Append(expected, {0x00, 0x00, 0x20, 0x40});    // y 2.5
  Append(expected, {0x00, 0x00, 0x00, 0xBF});    // z -0.5
  Append(expected, {0x00, 0x00, 0xA0, 0x42});    // intensity 80.0
  Append(expected, {0x00, 0x00, 0x40, 0x40});    // range 3.0
  Append(expected, {0, 0, 0, 0, 0, 0});          // row, column, echo, unused
  Append(expected, {0x40, 0x12});                // flags
  Append(expected, {0x00, 0x00, 0x00, 0x3F});    // 0.5 s
  Append(expected, {0});                         // not dense
  EXPECT_EQ(CloudOf(frame, options), expected);
}

TEST(CloudMessage, AnOrganisedCloudRunsFromTheTopLeft) {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 215, 1, 10.0F, 7);
  SetReturn(frame, 0, 3, 287, 20.0F, 8);
  const Cloud cloud = Read(CloudOf(frame, Options()));
  EXPECT_EQ(cloud.height, 216U);
  EXPECT_EQ(cloud.width, 288U);
  EXPECT_EQ(cloud.row_step, 288U * 32U);
  EXPECT_FALSE(cloud.is_dense);
  ASSERT_EQ(cloud.points.size(), 62208U);
  EXPECT_EQ(cloud.points[1].x, 10.0F);
  EXPECT_EQ(cloud.points[1].intensity, 7.0F);
  const std::size_t near_bottom = (215 - 3) * 288 + 287;
  EXPECT_EQ(cloud.points[near_bottom].x, 20.0F);
  for (std::size_t i = 0; i < cloud.points.size(); ++i) {
    ASSERT_EQ(cloud.points[i].row, 215 - i / 288);
    ASSERT_EQ(cloud.points[i].col, i % 288);
    ASSERT_EQ(std::isnan(cloud.points[i].x), i != 1 && i != near_bottom) << i;
  }
}

TEST(CloudMessage, APixelWithoutReturnHasNoPlaceButItsFlags) {
  Frame frame = EmptyFrame();
  frame.payload[0] = 99;
  frame.flags[0] = 0x800;
  const CloudPoint point = Read(CloudOf(frame, Options())).points.at(215 * 288);
  EXPECT_TRUE(std::isnan(point.x) && std::isnan(point.y) && std::isnan(point.z));
  EXPECT_EQ(point.range, 0.0F);
  EXPECT_EQ(point.intensity, 0.0F);
  EXPECT_EQ(point.flags, 0x800);
}

TEST(CloudMessage, TimeIsThatOfTheMiniflashRow) {
  Frame frame = EmptyFrame();
  frame.row_timestamp_us[35] = 0;  // lost
  const std::vector<CloudPoint> points = Read(CloudOf(frame, Options())).points;
  EXPECT_EQ(points[0].time, 0.0F) << "row 215, of which nothing came";
  EXPECT_EQ(points[6 * 288].time, 0.034F) << "row 209, the last of miniflash row 34";
  EXPECT_EQ(points[11 * 288].time, 0.034F);
  EXPECT_EQ(points[12 * 288].time, 0.033F);
  EXPECT_EQ(points[215 * 288].time, 0.0F);
}

TEST(CloudMessage, ValidOnlyKeepsReturnsThatHaveAPlace) {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 5, 5, 10.0F);
  SetReturn(frame, 0, 4, 6, 20.0F);
  SetReturn(frame, 0, 4, 7, 30.0F);
  frame.x_m[Frame::Index(0, 4, 7)] = NAN;  // its pixel has no direction
  MessageOptions options = Options();
  options.valid_only = true;
  const Cloud cloud = Read(CloudOf(frame, options));
  EXPECT_EQ(cloud.height, 1U);
  EXPECT_EQ(cloud.width, 2U);
  EXPECT_EQ(cloud.row_step, 64U);
  EXPECT_TRUE(cloud.is_dense);
  ASSERT_EQ(cloud.points.size(), 2U);
  EXPECT_EQ(cloud.points[0].range, 10.0F);
  EXPECT_EQ(cloud.points[1].range, 20.0F);
  EXPECT_EQ(cloud.points[1].row, 4);
  EXPECT_EQ(cloud.points[1].col, 6);
}

TEST(CloudMessage, ACloudWithoutPointsIsAMessageToo) {
  MessageOptions options = Options();
  options.valid_only = true;
  const Cloud cloud = Read(CloudOf(EmptyFrame(), options));
  EXPECT_EQ(cloud.height, 1U);
  EXPECT_EQ(cloud.width, 0U);
  EXPECT_TRUE(cloud.points.empty());
}

TEST(CloudMessage, WithoutDirectionsNothingHasAPlace) {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 215, 0, 10.0F);
  frame.x_m.clear();
  frame.y_m.clear();
  frame.z_m.clear();
  MessageOptions options = Options();
  const CloudPoint point = Read(CloudOf(frame, options)).points.at(0);
  EXPECT_TRUE(std::isnan(point.x));
  EXPECT_EQ(point.range, 10.0F);
  options.valid_only = true;
  EXPECT_TRUE(Read(CloudOf(frame, options)).points.empty());
}

TEST(CloudMessage, EchoesAreChosen) {
  Frame frame = EmptyFrame(2);
  SetReturn(frame, 0, 215, 0, 10.0F);
  SetReturn(frame, 1, 215, 0, 11.0F);
  MessageOptions options = Options();
  EXPECT_EQ(Read(CloudOf(frame, options)).points.at(0).range, 10.0F);
  options.echoes = EchoChoice::kSecond;
  const Cloud second = Read(CloudOf(frame, options));
  EXPECT_EQ(second.height, 216U);
  EXPECT_EQ(second.points.at(0).range, 11.0F);
  EXPECT_EQ(second.points.at(0).echo, 1);
  options.echoes = EchoChoice::kBoth;
  const Cloud both = Read(CloudOf(frame, options));
  EXPECT_EQ(both.height, 432U);
  ASSERT_EQ(both.points.size(), 124416U);
  EXPECT_EQ(both.points[0].range, 10.0F);
  EXPECT_EQ(both.points[62208].range, 11.0F);
  EXPECT_EQ(both.points[62208].row, 215);
  options.valid_only = true;
  EXPECT_EQ(Read(CloudOf(frame, options)).width, 2U);
}

TEST(CloudMessage, AnEchoThatIsNotPublishedHasNoReturns) {
  Frame frame = EmptyFrame(2);
  SetReturn(frame, 0, 215, 0, 10.0F);
  SetReturn(frame, 1, 215, 0, 11.0F, 5, 5);
  frame.echoes = 1;  // what stands in the second echo's planes is of an earlier frame
  MessageOptions options = Options();
  options.echoes = EchoChoice::kBoth;
  EXPECT_EQ(Read(CloudOf(frame, options)).height, 216U);
  options.echoes = EchoChoice::kSecond;
  const Cloud second = Read(CloudOf(frame, options));
  EXPECT_EQ(second.height, 216U);
  EXPECT_TRUE(std::isnan(second.points.at(0).x));
  EXPECT_EQ(second.points.at(0).range, 0.0F);
  EXPECT_EQ(second.points.at(0).flags, 0);
  options.valid_only = true;
  EXPECT_EQ(Read(CloudOf(frame, options)).width, 0U);
}

TEST(CloudMessage, EveryNthRowAndColumnBeginAtZero) {
  const Frame frame = EmptyFrame();
  MessageOptions options = Options();
  options.every_row = 100;  // 200, 100, 0
  options.every_col = 150;  // 0, 150
  const Cloud cloud = Read(CloudOf(frame, options));
  EXPECT_EQ(cloud.height, 3U);
  EXPECT_EQ(cloud.width, 2U);
  EXPECT_EQ(cloud.row_step, 64U);
  ASSERT_EQ(cloud.points.size(), 6U);
  EXPECT_EQ(cloud.points[1].row, 200);
  EXPECT_EQ(cloud.points[1].col, 150);
  EXPECT_EQ(cloud.points[2].row, 100);
  EXPECT_EQ(cloud.points[5].row, 0);
}

TEST(CloudMessage, AMaskedPixelReadsAsNothing) {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 215, 0, 10.0F, 80, 8);
  SetReturn(frame, 0, 215, 1, 20.0F, 80, 8);
  MessageOptions options = Options();
  options.masked[215 * 288] = true;
  const Cloud grid = Read(CloudOf(frame, options));
  EXPECT_TRUE(std::isnan(grid.points.at(0).x));
  EXPECT_EQ(grid.points[0].range, 0.0F);
  EXPECT_EQ(grid.points[0].intensity, 0.0F);
  EXPECT_EQ(grid.points[0].flags, 0);
  EXPECT_EQ(grid.points[1].range, 20.0F);
  options.valid_only = true;
  const Cloud line = Read(CloudOf(frame, options));
  ASSERT_EQ(line.width, 1U);
  EXPECT_EQ(line.points[0].range, 20.0F);
}

TEST(CloudMessage, ALongerFrameIdMovesWhatFollows) {
  MessageOptions options = Options();
  options.every_row = 216;
  options.every_col = 288;
  options.frame_id = "front";  // six bytes, so two of alignment
  const Bytes message = CloudOf(EmptyFrame(), options);
  EXPECT_EQ(message.size(), 305U + 4U);
  EXPECT_EQ(message[12], 6);
  EXPECT_EQ(message[24], 1) << "height";
}

}  // namespace
}  // namespace kerul::lidar::ros
