#include "ros_messages/stream_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/point_packet_by_hand.h"
#include "output/shm_test_name.h"
#include "output/shm_udp_writer.h"
#include "tools/ros_messages/parse_options.h"

namespace kerul::lidar::ros {
namespace {

TEST(StreamOptions, TheMountIsSixNumbersApartByBlanksOrCommas) {
  for (const std::vector<std::string>& spelling :
       std::vector<std::vector<std::string>>{{"--mount", "1", "-2", "3.5", "0.1", "-0.2", "0.3"},
                                             {"--mount", "1,-2,3.5,0.1,-0.2,0.3"},
                                             {"--mount=1,-2,3.5,0.1,-0.2,0.3"}}) {
    StreamOptions options;
    EXPECT_EQ(Parse(AddStreamOptions, spelling, options), "");
    ASSERT_TRUE(options.mount.has_value());
    EXPECT_EQ(options.mount->x, 1.0);
    EXPECT_EQ(options.mount->y, -2.0);
    EXPECT_EQ(options.mount->z, 3.5);
    EXPECT_EQ(options.mount->roll, 0.1);
    EXPECT_EQ(options.mount->pitch, -0.2);
    EXPECT_EQ(options.mount->yaw, 0.3);
  }
}

TEST(StreamOptions, AnotherNumberOfNumbersOrNoNumberIsRefused) {
  for (const std::vector<std::string>& wrong :
       std::vector<std::vector<std::string>>{{"--mount", "1", "2", "3", "4", "5"},
                                             {"--mount", "1", "2", "3", "4", "5", "6", "7"},
                                             {"--mount", "1", "2", "3", "4", "5", "nan"},
                                             {"--udp", "0"},
                                             {"--udp", "2369", "--shm", "ring"},
                                             {"--group", "239.0.0.1"}}) {
    StreamOptions options;
    EXPECT_NE(Parse(AddStreamOptions, wrong, options), "") << wrong[0];
  }
}

TEST(StreamOptions, FramesOfTheRingHavePointsWhereTheMountPutsThem) {
  const ShmTestName name;
  ShmUdpWriter writer(name.c_str(), 20 + 2000 * 1508);
  ASSERT_TRUE(writer.Open());
  PacketFields fields;
  for (fields.block = 0; fields.block < 1728; ++fields.block) {
    ASSERT_TRUE(writer.WriteOne(MakePacket(fields).data(), 249));
  }
  StreamOptions options;
  options.shm_name = name.str();
  std::string error;
  const auto plain = OpenStream(options, RingStart::kOldest, error);
  options.mount = TransformParam{.x = 100.0};
  const auto mounted = OpenStream(options, RingStart::kOldest, error);
  ASSERT_TRUE(plain && mounted) << error;
  const Frame* here = plain->Next(std::chrono::milliseconds(0));
  const Frame* there = mounted->Next(std::chrono::milliseconds(0));
  ASSERT_TRUE(here != nullptr && there != nullptr);
  const std::size_t ahead = 108 * 288 + 144;
  EXPECT_NEAR(here->x_m[ahead], 1.0F, 0.001F) << "250 units of 4 mm, near the optical axis";
  EXPECT_NEAR(there->x_m[ahead], 101.0F, 0.001F);
}

TEST(StreamOptions, WhatCannotBeOpenedIsTold) {
  StreamOptions options;
  options.calib_dir = "/nowhere";
  std::string error;
  EXPECT_EQ(OpenStream(options, RingStart::kNewest, error), nullptr);
  EXPECT_EQ(error, "no Lidar-*_angle_calib.dat and no *_head.bin in /nowhere");
}

}  // namespace
}  // namespace kerul::lidar::ros
