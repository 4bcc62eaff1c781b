#include "ros_messages/cloud_reader.h"

#include <gtest/gtest.h>

#include <cmath>

#include "ros_messages/cdr_writer.h"
#include "ros_messages/frame_messages.h"
#include "tools/ros_messages/sample_frame.h"

namespace kerul::lidar::ros {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes SampleMessage() {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 215, 3, 12.0F, 77, 1 << 6);
  Bytes message;
  FrameMessages(MessageOptions()).WriteCloud(frame, message);
  return message;
}

TEST(CloudReader, ACloudOfOursIsReadAsItWasWritten) {
  const Bytes message = SampleMessage();
  CloudView cloud;
  std::string error;
  ASSERT_TRUE(ParseCloud(message, cloud, error)) << error;
  EXPECT_EQ(cloud.stamp_sec, 1'700'000'000);
  EXPECT_EQ(cloud.stamp_nanosec, 250'000'000U);
  EXPECT_EQ(cloud.frame_id, "lidar");
  EXPECT_EQ(cloud.height, 216U);
  EXPECT_EQ(cloud.width, 288U);
  EXPECT_EQ(cloud.point_step, 32U);
  EXPECT_EQ(cloud.row_step, 288U * 32U);
  EXPECT_EQ(cloud.data.size(), 216U * 288U * 32U);
  EXPECT_FALSE(cloud.is_dense);
  ASSERT_EQ(cloud.fields.size(), 10U);
  EXPECT_EQ(cloud.fields[4].name, "range");
  EXPECT_EQ(cloud.fields[4].offset, 16U);
  // The highest row is the first line.
  EXPECT_EQ(FieldColumn(cloud, "x").At(3), 12.0);
  EXPECT_EQ(FieldColumn(cloud, "range").At(3), 12.0);
  EXPECT_EQ(FieldColumn(cloud, "intensity").At(3), 77.0);
  EXPECT_EQ(FieldColumn(cloud, "row").At(3), 215.0);
  EXPECT_EQ(FieldColumn(cloud, "col").At(3), 3.0);
  EXPECT_EQ(FieldColumn(cloud, "flags").At(3), 64.0);
  EXPECT_TRUE(std::isnan(FieldColumn(cloud, "x").At(4)));
  EXPECT_EQ(FieldColumn(cloud, "row").At(288), 214.0);
  EXPECT_FALSE(FieldColumn(cloud, "ring").IsThere());
  EXPECT_EQ(FieldColumn(cloud, "ring").At(3), 0.0);
}

TEST(CloudReader, AMessageCutAnywhereIsRefused) {
  const Bytes message = SampleMessage();
  CloudView cloud;
  std::string error;
  std::size_t refused = 0;
  for (std::size_t size = 0; size < message.size(); size += size < 400 ? 1 : 9973) {
    EXPECT_FALSE(ParseCloud(std::span(message).first(size), cloud, error)) << size;
    ++refused;
  }
  EXPECT_FALSE(ParseCloud(std::span(message).first(message.size() - 1), cloud, error));
  EXPECT_EQ(error, "the message is too short");
  EXPECT_GT(refused, 500U);
}

struct Parts {
  std::uint32_t height = 2;
  std::uint32_t width = 3;
  std::vector<NamedField> fields{{"x", 0, 7, 1}};
  bool big_endian = false;
  std::uint32_t point_step = 8;
  std::uint32_t row_step = 24;
  std::size_t data_bytes = 48;
};

Bytes Message(const Parts& parts) {
  Bytes message;
  CdrWriter cdr(message);
  cdr.Put(std::int32_t{1});
  cdr.Put(std::uint32_t{2});
  cdr.PutString("f");
  cdr.Put(parts.height);
  cdr.Put(parts.width);
  cdr.Put(static_cast<std::uint32_t>(parts.fields.size()));
  for (const NamedField& field : parts.fields) {
    cdr.PutString(field.name);
    cdr.Put(field.offset);
    cdr.Put(field.datatype);
    cdr.Put(field.count);
  }
  cdr.Put(static_cast<std::uint8_t>(parts.big_endian));
  cdr.Put(parts.point_step);
  cdr.Put(parts.row_step);
  cdr.Put(static_cast<std::uint32_t>(parts.data_bytes));
  std::uint8_t* data = cdr.Room(parts.data_bytes);
  for (std::size_t i = 0; i < parts.data_bytes; ++i) data[i] = static_cast<std::uint8_t>(i);
  cdr.Put(std::uint8_t{1});
  return message;
}

std::string ErrorOf(const Parts& parts) {
  CloudView cloud;
  std::string error;
  return ParseCloud(Message(parts), cloud, error) ? "" : error;
}

TEST(CloudReader, PointsThatReachBeyondTheDataAreRefused) {
  const std::string beyond = "the points do not fit into the data";
  EXPECT_EQ(ErrorOf({}), "");
  EXPECT_EQ(ErrorOf({.data_bytes = 47}), beyond);
  EXPECT_EQ(ErrorOf({.row_step = 23}), beyond);
  EXPECT_EQ(ErrorOf({.point_step = 0}), beyond);
  EXPECT_EQ(ErrorOf({.height = 3}), beyond);
  EXPECT_EQ(ErrorOf({.height = 0xFFFFFFFF, .width = 0xFFFFFFFF}), beyond);
  EXPECT_EQ(ErrorOf({.height = 0xFFFFFFFF, .width = 0, .row_step = 0}), "");
  EXPECT_EQ(ErrorOf({.height = 0, .data_bytes = 0}), "");
  EXPECT_EQ(ErrorOf({.big_endian = true}), "the points are big-endian");
}

TEST(CloudReader, OtherEncapsulationsAreRefused) {
  Bytes message = SampleMessage();
  CloudView cloud;
  std::string error;
  message[1] = 0;
  EXPECT_FALSE(ParseCloud(message, cloud, error));
  EXPECT_EQ(error, "the message is not little-endian CDR");
}

// Bytes 32 to 39 of the data are 20 21 22 ... in hexadecimal: the second point of the second line.
TEST(CloudReader, EachTypeOfAFieldIsReadAtItsPlace) {
  const auto at = [](std::uint8_t datatype, std::uint32_t offset) {
    const Bytes message = Message({.fields = {{"v", offset, datatype, 1}}});
    CloudView cloud;
    std::string error;
    EXPECT_TRUE(ParseCloud(message, cloud, error)) << error;
    const FieldColumn column(cloud, "v");
    return column.IsThere() ? column.At(4) : -1.0;
  };
  EXPECT_EQ(at(1, 2), 0x22);
  EXPECT_EQ(at(2, 2), 0x22);
  EXPECT_EQ(at(3, 2), 0x2322);
  EXPECT_EQ(at(4, 2), 0x2322);
  EXPECT_EQ(at(5, 2), 0x25242322);
  EXPECT_EQ(at(6, 2), 0x25242322);
  float single = 0.0F;
  const std::uint32_t single_bits = 0x27262524;
  std::memcpy(&single, &single_bits, 4);
  EXPECT_EQ(at(7, 4), double{single});
  double whole = 0.0;
  const std::uint64_t whole_bits = 0x2726252423222120;
  std::memcpy(&whole, &whole_bits, 8);
  EXPECT_EQ(at(8, 0), whole);
  EXPECT_EQ(at(8, 1), -1.0) << "reaches beyond the point";
  EXPECT_EQ(at(7, 0xFFFFFFFF), -1.0);
  EXPECT_EQ(at(0, 0), -1.0);
  EXPECT_EQ(at(9, 0), -1.0);
}

}  // namespace
}  // namespace kerul::lidar::ros
