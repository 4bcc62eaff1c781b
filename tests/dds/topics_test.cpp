// lidar_dds against another maker's DDS and other people's decoder.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "dds/dds_fixture.h"
#include "dds/expected_frames.h"
#include "ros_messages/message_types.h"

namespace kerul::lidar::testing {
namespace {

TEST_F(DdsTest, EveryFrameAtTenASecondArrivesWithThePointsThatOurOwnReaderSees) {
  constexpr int kFrames = 20;
  PretendedNode node("points");
  PointsFile expected("points", File("expected"));
  const auto listener = StartListener("rt/lidar/points", kCloudType, "received");
  const auto bridge = StartBridge({"--shm", "points", "--frame-id", "front", "--frames", "20"});
  ASSERT_TRUE(AreConnected(*bridge, *listener)) << bridge->Err();
  TenASecond(kFrames, [&] {
    node.PublishFrame();
    expected.TakeFrame();
  });
  EXPECT_TRUE(listener->WaitFor(Stream::kOut, "message 20\n")) << listener->Out();
  EXPECT_EQ(bridge->WaitForExit(), 0) << bridge->Err();
  EXPECT_NE(bridge->Out().find(Summary(20, 20, 0)), std::string::npos) << bridge->Out();
  EXPECT_EQ(listener->Interrupt(), 0);
  std::string output;
  EXPECT_TRUE(RunDecoder({"check_clouds.mjs", File("received"), File("expected"), "front"}, output))
      << output;
  EXPECT_EQ(output, "20 clouds are equal\n");
}

TEST_F(DdsTest, ImagesArriveWithTheRangesAndReflectivitiesThatOurOwnReaderSees) {
  PretendedNode node("points");
  PointsFile expected("points", File("expected"));
  const auto ranges = StartListener("rt/lidar/points/range", kImageType, "ranges");
  const auto bridge = StartBridge({"--shm", "points", "--images", "--frames", "3"});
  const auto levels =
      StartListener("rt/lidar/points/reflectivity", kImageType, "levels", "best-effort");
  // The status line tells of clouds only: a third subscriber, who comes last, says that all are
  // there.
  ASSERT_TRUE(ranges->WaitFor(Stream::kOut, "matched"));
  ASSERT_TRUE(levels->WaitFor(Stream::kOut, "matched"));
  const auto clouds = StartListener("rt/lidar/points", kCloudType, "clouds");
  ASSERT_TRUE(AreConnected(*bridge, *clouds)) << bridge->Err();
  TenASecond(3, [&] {
    node.PublishFrame();
    expected.TakeFrame();
  });
  EXPECT_TRUE(ranges->WaitFor(Stream::kOut, "message 3\n"));
  EXPECT_TRUE(levels->WaitFor(Stream::kOut, "message 3\n"));
  EXPECT_EQ(bridge->WaitForExit(), 0);
  std::string output;
  EXPECT_TRUE(RunDecoder({"check_images.mjs", File("ranges"), File("expected"), "range"}, output))
      << output;
  EXPECT_TRUE(
      RunDecoder({"check_images.mjs", File("levels"), File("expected"), "intensity"}, output))
      << output;
  EXPECT_EQ(output, "3 images are equal\n");
}

TEST_F(DdsTest, ALateJoinerTakesWhatIsPublishedFromThenOn) {
  PretendedNode node("points");
  const auto first = StartListener("rt/lidar/points", kCloudType, "first");
  const auto bridge = StartBridge({"--shm", "points"});
  ASSERT_TRUE(AreConnected(*bridge, *first)) << bridge->Err();
  TenASecond(3, [&] { node.PublishFrame(); });
  ASSERT_TRUE(first->WaitFor(Stream::kOut, "message 3\n"));
  const auto late = StartListener("rt/lidar/points", kCloudType, "late");
  ASSERT_TRUE(AreConnected(*bridge, *late, 2)) << bridge->Out();
  TenASecond(2, [&] { node.PublishFrame(); });
  EXPECT_TRUE(first->WaitFor(Stream::kOut, "message 5\n"));
  EXPECT_TRUE(late->WaitFor(Stream::kOut, "message 2\n"));
  EXPECT_EQ(late->Out().find("message 3"), std::string::npos);
  EXPECT_EQ(bridge->Interrupt(), 0);
  EXPECT_NE(bridge->Out().find(Summary(5, 5, 0)), std::string::npos) << bridge->Out();
}

TEST_F(DdsTest, ASubscriberThatStallsDelaysNeitherTheRingNorTheOthers) {
  constexpr int kFrames = 30;
  PretendedNode node("points");
  const auto sound = StartListener("rt/lidar/points", kCloudType, "sound");
  const auto stalled = StartListener("rt/lidar/points", kCloudType, "stalled");
  const auto bridge = StartBridge({"--shm", "points"});
  ASSERT_TRUE(stalled->WaitFor(Stream::kOut, "matched"));
  ASSERT_TRUE(AreConnected(*bridge, *sound, 2)) << bridge->Err();
  TenASecond(1, [&] { node.PublishFrame(); });
  ASSERT_TRUE(stalled->WaitFor(Stream::kOut, "message 1\n"));
  stalled->Signal(SIGSTOP);
  TenASecond(kFrames - 1, [&] { node.PublishFrame(); });
  EXPECT_TRUE(sound->WaitFor(Stream::kOut, "message 30\n")) << sound->Out();
  EXPECT_EQ(bridge->Interrupt(), 0);
  // None is lost in the ring, which holds less than ten; and none was held up on its way out.
  EXPECT_NE(bridge->Out().find(Summary(kFrames, kFrames, 0)), std::string::npos) << bridge->Out();
  stalled->Signal(SIGCONT);
}

TEST_F(DdsTest, TwoNodesPublishOnOneDomainSideBySide) {
  PretendedNode front("front");
  PretendedNode rear("rear");
  PointsFile expected("rear", File("expected"));
  const auto front_listener = StartListener("rt/front/points", kCloudType, "front");
  const auto rear_listener = StartListener("rt/rear/points", kCloudType, "rear");
  const auto front_bridge =
      StartBridge({"--shm", "front", "--topic", "/front/points", "--frames", "4"});
  const auto rear_bridge = StartBridge(
      {"--shm", "rear", "--topic", "/rear/points", "--frame-id", "rear", "--frames", "3"});
  ASSERT_TRUE(AreConnected(*front_bridge, *front_listener)) << front_bridge->Err();
  ASSERT_TRUE(AreConnected(*rear_bridge, *rear_listener)) << rear_bridge->Err();
  front.PublishFrame();  // from here on their frames differ
  TenASecond(3, [&] {
    front.PublishFrame();
    rear.PublishFrame();
    expected.TakeFrame();
  });
  EXPECT_TRUE(front_listener->WaitFor(Stream::kOut, "message 4\n"));
  EXPECT_TRUE(rear_listener->WaitFor(Stream::kOut, "message 3\n"));
  EXPECT_EQ(front_bridge->WaitForExit(), 0);
  EXPECT_EQ(rear_bridge->WaitForExit(), 0);
  std::string output;
  EXPECT_TRUE(RunDecoder({"check_clouds.mjs", File("rear"), File("expected"), "rear"}, output))
      << output;
}

TEST_F(DdsTest, ARestartedNodeIsFollowed) {
  PretendedNode node("points");
  const auto listener = StartListener("rt/lidar/points", kCloudType, "received");
  const auto bridge = StartBridge({"--shm", "points"});
  ASSERT_TRUE(AreConnected(*bridge, *listener)) << bridge->Err();
  node.PublishFrame();
  ASSERT_TRUE(listener->WaitFor(Stream::kOut, "message 1\n"));
  node.Restart();
  node.PublishFrame();
  EXPECT_TRUE(listener->WaitFor(Stream::kOut, "message 2\n"));
  EXPECT_EQ(bridge->Interrupt(), 0);
}

TEST_F(DdsTest, ARunWithoutAFrameSaysWhereItLooked) {
  const auto bridge = StartBridge({"--shm", "nowhere", "--seconds", "0.1"});
  EXPECT_EQ(bridge->WaitForExit(), 1);
  EXPECT_EQ(bridge->Err(), "lidar_dds: no complete frame came from ring /nowhere (not there)\n");
}

// Its receive buffer is one that the machine has to allow.
TEST_F(DdsTest, TheExampleConfigurationIsTakenAfterTheOneThatIsCompiledIn) {
  std::ifstream limit("/proc/sys/net/core/rmem_max");
  long allowed = 0;
  limit >> allowed;
  if (allowed < 4 * 1024 * 1024) GTEST_SKIP() << "net.core.rmem_max is " << allowed;
  setenv("CYCLONEDDS_URI", "file://" KERUL_SOURCE_DIR "/docs/examples/cyclonedds.xml", 1);
  PretendedNode node("points");
  const auto listener = StartListener("rt/lidar/points", kCloudType, "received");
  const auto bridge = StartBridge({"--shm", "points", "--frames", "1"});
  ASSERT_TRUE(AreConnected(*bridge, *listener)) << bridge->Err();
  node.PublishFrame();
  EXPECT_TRUE(listener->WaitFor(Stream::kOut, "message 1\n"));
  EXPECT_EQ(bridge->WaitForExit(), 0);

  setenv("CYCLONEDDS_URI", "<CycloneDDS><Domain><NoSuchElement/></Domain></CycloneDDS>", 1);
  const auto refused = StartBridge({"--shm", "points"});
  EXPECT_EQ(refused->WaitForExit(), 1);
  EXPECT_NE(refused->Err().find("lidar_dds: cannot configure the domain"), std::string::npos)
      << refused->Err();
  unsetenv("CYCLONEDDS_URI");
}

TEST_F(DdsTest, TheTypesHaveTheHashesThatRosComputes) {
  for (const ros::MessageType* type : {&ros::kPointCloud2, &ros::kImage}) {
    std::string name = type->name;
    name.erase(name.find("/msg"), 4);
    std::string output;
    EXPECT_TRUE(RunDecoder({"check_hash.mjs", name, type->hash}, output)) << output;
  }
}

}  // namespace
}  // namespace kerul::lidar::testing
