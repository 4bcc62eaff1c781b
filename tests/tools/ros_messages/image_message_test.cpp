#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "ros_messages/frame_messages.h"
#include "tools/ros_messages/sample_frame.h"

namespace kerul::lidar::ros {
namespace {

using Bytes = std::vector<std::uint8_t>;

MessageOptions Small() {
  MessageOptions options;
  options.frame_id = "map";
  options.every_row = 215;  // rows 215 and 0
  options.every_col = 200;  // columns 0 and 200
  return options;
}

// A pixel of each corner: 1 m, 80 at the top left; 2.5 m, 81 at the bottom right.
Frame Corners() {
  Frame frame = EmptyFrame();
  SetReturn(frame, 0, 215, 0, 1.0F, 80);
  SetReturn(frame, 0, 0, 200, 2.5F, 81);
  return frame;
}

TEST(ImageMessage, EveryByteOfARangeImageIsWhereCdrPutsIt) {
  const Bytes expected{
      0,    1,    0,    0,                                     // encapsulation
      0x00, 0xF1, 0x53, 0x65, 0x80, 0xB2, 0xE6, 0x0E,          // 1700000000 s 250000000 ns
      4,    0,    0,    0,    'm',  'a',  'p',  0,             //
      2,    0,    0,    0,    2,    0,    0,    0,             // height, width
      6,    0,    0,    0,    '3',  '2',  'F',  'C',  '1', 0,  // encoding
      0,                                                       // little-endian
      0,                                                       // alignment
      8,    0,    0,    0,                                     // bytes of a line
      16,   0,    0,    0,                                     // bytes of data
      0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0xC0, 0x7F,          // 1.0, NaN
      0x00, 0x00, 0xC0, 0x7F, 0x00, 0x00, 0x20, 0x40,          // NaN, 2.5
  };
  Bytes message;
  FrameMessages(Small()).WriteRangeImage(Corners(), message);
  EXPECT_EQ(message, expected);
}

TEST(ImageMessage, AReflectivityImageHasOneByteAPixel) {
  Bytes message;
  FrameMessages(Small()).WriteReflectivityImage(Corners(), message);
  ASSERT_EQ(message.size(), 52U);
  EXPECT_EQ(std::memcmp(&message[32], "mono8", 6), 0);
  EXPECT_EQ(message[40], 2) << "bytes of a line";
  EXPECT_EQ(Bytes(message.begin() + 44, message.end()), (Bytes{4, 0, 0, 0, 80, 0, 0, 81}));
}

TEST(ImageMessage, MaskedPixelsAndUnpublishedEchoesAreNoReturns) {
  Frame frame = Corners();
  SetReturn(frame, 1, 215, 0, 9.0F, 9);
  MessageOptions options = Small();
  options.masked[200] = true;  // row 0
  Bytes message;
  FrameMessages(options).WriteReflectivityImage(frame, message);
  EXPECT_EQ(Bytes(message.begin() + 48, message.end()), (Bytes{80, 0, 0, 0}));
  options.echoes = EchoChoice::kSecond;
  FrameMessages(options).WriteReflectivityImage(frame, message);
  EXPECT_EQ(Bytes(message.begin() + 48, message.end()), (Bytes{0, 0, 0, 0}));
}

TEST(ImageMessage, BothEchoesStandOneAboveTheOther) {
  Frame frame = Corners();
  frame.echoes = 2;
  SetReturn(frame, 1, 215, 200, 9.0F, 9);
  MessageOptions options = Small();
  options.echoes = EchoChoice::kBoth;
  Bytes message;
  FrameMessages(options).WriteReflectivityImage(frame, message);
  EXPECT_EQ(message[20], 4) << "height";
  EXPECT_EQ(Bytes(message.begin() + 48, message.end()), (Bytes{80, 0, 0, 81, 0, 9, 0, 0}));
}

}  // namespace
}  // namespace kerul::lidar::ros
