#include "lidar_web/frame_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "lidar_view/frame_output.h"
#include "support/temp_dir.h"
#include "tools/lidar_view/sample_frame.h"

namespace kerul::lidar::web {
namespace {

using ::testing::HasSubstr;

// Two echoes with a gradient of ranges, holes, ground and flags.
CollectedFrame SampleFrame(int mode) {
  CollectedFrame frame = view::UniformFrame(mode, 0, {});
  frame.key.echoes = 2;
  frame.present[1].set();
  frame.last_timestamp_us = 1700000000250000;
  for (std::size_t i = 0; i < frame.points.size(); ++i) {
    if (i % 7 == 0) continue;
    const auto byte = static_cast<std::uint8_t>(i * 5);
    frame.points[i] = {static_cast<std::uint16_t>(i % 9000),
                       {byte, static_cast<std::uint8_t>(i / 3), static_cast<std::uint8_t>(i / 11)}};
  }
  return frame;
}

ViewGeometry Geometry(bool mounted) {
  ViewGeometry geometry;
  std::string error;
  EXPECT_TRUE(view::LoadDirectionsOrDefault("", geometry.directions, error)) << error;
  if (mounted) {
    geometry.mount.emplace();
    geometry.mount->x = 1.5;
    geometry.mount->yaw = 0.25;
    ComputeRotation(*geometry.mount);
  }
  return geometry;
}

FrameMessage MessageOf(const CollectedFrame& collected) {
  Frame frame;
  FillFrame(collected, nullptr, nullptr, frame);
  FrameMessage message;
  EncodeFrame(frame, 1, 0.0, 8, message);
  return message;
}

std::string FileOf(const FrameMessage& message, const ViewGeometry& geometry, FileFormat format,
                   bool floats = false) {
  std::vector<char> file;
  std::string error;
  EXPECT_TRUE(MakeFrameFile(message.header, message.View(), geometry, format, floats, file, error))
      << error;
  return {file.begin(), file.end()};
}

// In modes 0 and 12 a message carries all that these files hold; 4 has neither reflectivity nor
// ground.
class FrameFilesOfMode : public ::testing::TestWithParam<int> {};

TEST_P(FrameFilesOfMode, AreThoseOfTheViewer) {
  const CollectedFrame frame = SampleFrame(GetParam());
  const FrameMessage message = MessageOf(frame);
  for (const bool mounted : {false, true}) {
    const ViewGeometry geometry = Geometry(mounted);
    const testing::TempDir folder;
    const view::FrameFiles files{folder.File("a.png"), folder.File("a.pcd"), folder.File("a.ply"),
                                 folder.File("a.las"), PcdNumbers::kFloats};
    std::string error;
    ASSERT_TRUE(
        view::WriteFrameFiles(files, frame, geometry.directions, geometry.Mount(), {}, error))
        << error;
    EXPECT_EQ(FileOf(message, geometry, FileFormat::kPcd, true), folder.Read("a.pcd"));
    EXPECT_EQ(FileOf(message, geometry, FileFormat::kPly), folder.Read("a.ply"));
    EXPECT_EQ(FileOf(message, geometry, FileFormat::kLas), folder.Read("a.las"));
    EXPECT_EQ(FileOf(message, geometry, FileFormat::kPng), folder.Read("a.png"));
    EXPECT_GT(folder.Read("a.las").size(), 28U * 100'000);
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, FrameFilesOfMode, ::testing::Values(0, 4, 12));

TEST(FrameFiles, PackedPcdIsTheDefault) {
  const std::string pcd = FileOf(MessageOf(SampleFrame(0)), Geometry(false), FileFormat::kPcd);
  EXPECT_THAT(pcd.substr(0, 200), HasSubstr("TYPE F F F F U U U U\n"));
}

TEST(FrameFiles, JsonHasALineForEachReturn) {
  CollectedFrame frame = view::UniformFrame(12, 0, {});
  frame.key.frame_id = 9;
  view::SetPoint(frame, 0, 12, 24, 250, {80, 0x40, 0x08});
  view::SetPoint(frame, 0, 13, 24, 1000, {255, 0, 0});
  ViewGeometry geometry;
  geometry.directions = view::StraightAhead();
  const std::string json = FileOf(MessageOf(frame), geometry, FileFormat::kJson);
  EXPECT_EQ(json,
            "{\"frame_id\":9,\"serial\":1,\"output_mode\":12,\"return_code\":0,\"echoes\":1,"
            "\"first_us\":0,\"last_us\":0,\"missing_blocks\":0,\"known_flags\":8191,"
            "\"columns\":[\"echo\",\"row\",\"col\",\"range_m\",\"x_m\",\"y_m\",\"z_m\","
            "\"reflectivity\",\"flags\"],\"points\":[[0,12,24,1.000,1.000,0.000,0.000,80,2112],\n"
            "[0,13,24,4.000,4.000,0.000,0.000,255,0]]}\n");
}

TEST(FrameFiles, JsonOfNothingIsJsonToo) {
  const std::string json =
      FileOf(MessageOf(view::UniformFrame(0, 0, {})), Geometry(false), FileFormat::kJson);
  EXPECT_TRUE(json.ends_with("\"points\":[]}\n")) << json;
}

// What a client posts may hold anything after a sound header.
TEST(FrameFiles, AnyPlanesAndHeadersBecomeFiles) {
  std::mt19937 random(1);
  std::vector<char> message(kLargestFrameBytes);
  for (const int echoes : {1, 2}) {
    for (const int planes : {0, 1}) {
      for (char& byte : message) byte = static_cast<char>(random());
      message[0] = 2;
      message[1] = static_cast<char>(planes);
      message[2] = static_cast<char>(echoes);
      message[3] = static_cast<char>(255);  // millimetres in a unit
      const std::size_t point_bytes = planes == 1 ? 5 : 3;
      const std::span<const char> bytes =
          std::span(message).first(96 + static_cast<std::size_t>(echoes) * 62208 * point_bytes);
      const std::optional<FrameHeader> header = ReadFrameHeader(bytes);
      ASSERT_TRUE(header.has_value());
      for (const FileFormat format : {FileFormat::kPng, FileFormat::kPcd, FileFormat::kPly,
                                      FileFormat::kLas, FileFormat::kJson}) {
        std::vector<char> file;
        std::string error;
        EXPECT_TRUE(MakeFrameFile(*header, bytes, Geometry(true), format, true, file, error));
        EXPECT_GT(file.size(), 10'000U);
      }
    }
  }
}

TEST(FrameFiles, WithoutTheFlagsPlaneNothingIsSaidOfTheGround) {
  FrameMessage message = MessageOf(SampleFrame(0));
  const std::size_t size = AddressFrame(message, Pull{}, 0.0);
  const std::span<const char> bytes = message.View().first(size);
  const std::optional<FrameHeader> header = ReadFrameHeader(bytes);
  ASSERT_TRUE(header.has_value());
  std::vector<char> las;
  std::string error;
  ASSERT_TRUE(MakeFrameFile(*header, bytes, Geometry(false), FileFormat::kLas, false, las, error));
  std::size_t classified = 0;
  for (std::size_t at = 227; at < las.size(); at += 28) classified += las[at + 15] != 0 ? 1U : 0U;
  EXPECT_EQ(classified, 0U);
}

}  // namespace
}  // namespace kerul::lidar::web
