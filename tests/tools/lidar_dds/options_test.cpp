#include "lidar_dds/options.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace kerul::lidar::dds {
namespace {

bool Parse(std::vector<const char*> arguments, Options& options) {
  arguments.insert(arguments.begin(), "lidar_dds");
  int exit_status = 0;
  return ParseOptions(static_cast<int>(arguments.size()), arguments.data(), options, exit_status);
}

TEST(DdsOptions, TheDefaultsAreThoseOfRos) {
  unsetenv("ROS_DOMAIN_ID");
  Options options;
  ASSERT_TRUE(Parse({}, options));
  EXPECT_EQ(options.topics.topic, "lidar/points");
  EXPECT_EQ(options.topics.domain, 0);
  EXPECT_FALSE(options.topics.images);
  EXPECT_EQ(options.bridge.messages.frame_id, "lidar");
}

TEST(DdsOptions, TheDomainComesFromTheEnvironmentUnlessItIsGiven) {
  setenv("ROS_DOMAIN_ID", "7", 1);
  Options options;
  ASSERT_TRUE(Parse({}, options));
  EXPECT_EQ(options.topics.domain, 7);
  ASSERT_TRUE(Parse({"--domain", "3"}, options));
  EXPECT_EQ(options.topics.domain, 3);
  EXPECT_FALSE(Parse({"--domain", "233"}, options));
  unsetenv("ROS_DOMAIN_ID");
}

TEST(DdsOptions, ImagesAreForBothSides) {
  Options options;
  ASSERT_TRUE(Parse({"--images", "--topic", "/front/points"}, options));
  EXPECT_TRUE(options.topics.images);
  EXPECT_TRUE(options.bridge.images);
  EXPECT_EQ(options.topics.topic, "front/points") << "ROS writes its names with a slash in front";
}

TEST(DdsOptions, ATopicIsWhatRosTakesForOne) {
  for (const char* name : {"a", "lidar/points", "_a/b_2", "Front"}) {
    EXPECT_TRUE(IsTopicName(name)) << name;
  }
  for (const char* name : {"", "/a", "a/", "a//b", "2a", "a/2b", "a b", "a-b", "\xC3\xA4"}) {
    EXPECT_FALSE(IsTopicName(name)) << name;
  }
  Options options;
  EXPECT_FALSE(Parse({"--topic", "a//b"}, options));
}

}  // namespace
}  // namespace kerul::lidar::dds
