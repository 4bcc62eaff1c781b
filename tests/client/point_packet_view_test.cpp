#include "kerul_lidar/point_packet_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "client/point_packet_by_hand.h"

namespace kerul::lidar {
namespace {

PointPacketError ErrorWith(std::size_t at, std::uint8_t value) {
  PacketBytes bytes = MakePacket({});
  bytes[at] = value;
  PointPacketView view;
  const PointPacketError error = view.Parse(bytes.data(), bytes.size());
  EXPECT_EQ(view.IsValid(), error == PointPacketError::kNone);
  return error;
}

TEST(PointPacketView, HeaderFieldsComeFromTheirPlaces) {
  PacketFields fields;
  fields.block = 5 * 48 + 7;
  fields.marker = 2;
  fields.frame_id = 201;
  fields.mode = 12;
  fields.sequence_base = 3456;
  fields.return_code_byte = 0x12;
  const PacketBytes bytes = MakePacket(fields);
  PointPacketView view;
  ASSERT_EQ(view.Parse(bytes.data(), bytes.size()), PointPacketError::kNone);
  EXPECT_EQ(view.Marker(), 2);
  EXPECT_EQ(view.EchoCount(), 2);
  EXPECT_EQ(view.Echo(), 1);
  EXPECT_EQ(view.UnitMm(), 4);
  EXPECT_EQ(view.Mode(), 12);
  EXPECT_EQ(view.BlockRow(), 5);
  EXPECT_EQ(view.BlockCol(), 7);
  EXPECT_EQ(view.Block(), 247);
  EXPECT_EQ(view.FrameId(), 201);
  EXPECT_EQ(view.ReturnCode(), 12);
  EXPECT_EQ(view.Sequence(), 3456U + 2 * 247 + 1);
  EXPECT_EQ(view.SequenceBase(), 3456U);
}

TEST(PointPacketView, SecondsAreBigEndianAndMicrosecondsLittle) {
  PacketBytes bytes = MakePacket({});
  const std::uint8_t time[8] = {0x65, 0x53, 0xF1, 0x00, 0x40, 0xE2, 0x01, 0x00};
  for (std::size_t i = 0; i < 8; ++i) bytes[216 + i] = time[i];
  PointPacketView view;
  ASSERT_EQ(view.Parse(bytes.data(), bytes.size()), PointPacketError::kNone);
  EXPECT_EQ(view.TimestampUs(), 0x6553F100LL * 1000000 + 123456);
}

TEST(PointPacketView, MarkersTellEchoAndPlan) {
  int checked = 0;
  for (const int marker : {0, 1, 2}) {
    PacketFields fields;
    fields.marker = marker;
    fields.block = 1727;
    fields.sequence_base = 0xFFFFFF00;  // the number wraps inside the frame
    const PacketBytes bytes = MakePacket(fields);
    PointPacketView view;
    ASSERT_EQ(view.Parse(bytes.data(), bytes.size()), PointPacketError::kNone);
    EXPECT_EQ(view.EchoCount(), marker == 0 ? 1 : 2);
    EXPECT_EQ(view.Echo(), marker == 2 ? 1 : 0);
    EXPECT_EQ(view.SequenceBase(), 0xFFFFFF00U);
    ++checked;
  }
  EXPECT_EQ(checked, 3);
}

TEST(PointPacketView, PointsRunDownAColumnThenToTheNext) {
  PacketFields fields;
  fields.block = 35 * 48 + 47;
  fields.distance = 1000;
  PacketBytes bytes = MakePacket(fields);
  bytes[20 + 5 * 13 + 1] = 0xFF;  // upper byte of point 13's distance
  PointPacketView view;
  ASSERT_EQ(view.Parse(bytes.data(), bytes.size()), PointPacketError::kNone);
  const PacketPoint first = view.Point(0);
  EXPECT_EQ(first.row, 210);
  EXPECT_EQ(first.col, 282);
  EXPECT_EQ(first.distance, 1000);
  const PacketPoint fifth = view.Point(5);
  EXPECT_EQ(fifth.row, 215);
  EXPECT_EQ(fifth.col, 282);
  const PacketPoint thirteenth = view.Point(13);
  EXPECT_EQ(thirteenth.row, 211);
  EXPECT_EQ(thirteenth.col, 284);
  EXPECT_EQ(thirteenth.distance, 0xFF00 + ((1000 + 13) & 0xFF));
  EXPECT_EQ(thirteenth.payload[0], 10);
  EXPECT_EQ(thirteenth.payload[2], 30);
  const PacketPoint last = view.Point(35);
  EXPECT_EQ(last.row, 215);
  EXPECT_EQ(last.col, 287);
}

TEST(PointPacketView, OnlyTheExactLengthIsTaken) {
  std::array<std::uint8_t, 250> bytes{};
  const PacketBytes packet = MakePacket({});
  std::copy(packet.begin(), packet.end(), bytes.begin());
  PointPacketView view;
  EXPECT_EQ(view.Parse(bytes.data(), 249), PointPacketError::kNone);
  EXPECT_EQ(view.Parse(bytes.data(), 248), PointPacketError::kLength);
  EXPECT_FALSE(view.IsValid()) << "an earlier packet does not stay";
  EXPECT_EQ(view.Parse(bytes.data(), 250), PointPacketError::kLength);
  EXPECT_EQ(view.Parse(bytes.data(), 0), PointPacketError::kLength);
  EXPECT_EQ(view.Parse(nullptr, 249), PointPacketError::kLength);
}

TEST(PointPacketView, EachFixedFieldIsChecked) {
  EXPECT_EQ(ErrorWith(0, 0xEF), PointPacketError::kMagic);
  EXPECT_EQ(ErrorWith(1, 0xEE), PointPacketError::kMagic);
  EXPECT_EQ(ErrorWith(2, 8), PointPacketError::kVersion);
  EXPECT_EQ(ErrorWith(3, 11), PointPacketError::kVersion);
  EXPECT_EQ(ErrorWith(204, 0), PointPacketError::kTail);
  EXPECT_EQ(ErrorWith(205, 0), PointPacketError::kTail);
  EXPECT_EQ(ErrorWith(206, 0), PointPacketError::kTail);
  for (const std::size_t at : {6U, 7U, 8U, 9U, 10U, 11U, 14U, 15U}) {
    EXPECT_EQ(ErrorWith(at, 77), PointPacketError::kGeometry) << at;
  }
  EXPECT_EQ(ErrorWith(13, 0), PointPacketError::kGeometry);
  EXPECT_EQ(ErrorWith(12, 3), PointPacketError::kMarker);
  EXPECT_EQ(ErrorWith(207, 36), PointPacketError::kBlock);
  EXPECT_EQ(ErrorWith(208, 48), PointPacketError::kBlock);
}

TEST(PointPacketView, BytesWithoutMeaningMayHoldAnything) {
  for (const std::size_t at : {4U, 5U, 16U, 19U, 200U, 202U, 210U, 212U, 215U, 224U, 229U, 248U}) {
    EXPECT_EQ(ErrorWith(at, 0x5A), PointPacketError::kNone) << at;
  }
}

TEST(PointPacketView, EveryErrorHasAName) {
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kNone), "none");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kLength), "length");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kMagic), "magic");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kVersion), "version");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kTail), "tail");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kGeometry), "geometry");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kMarker), "marker");
  EXPECT_STREQ(PointPacketErrorName(PointPacketError::kBlock), "block");
}

}  // namespace
}  // namespace kerul::lidar
