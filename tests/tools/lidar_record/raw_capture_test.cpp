#include "lidar_record/raw_capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "lidar_record/channels.h"
#include "sensor_simulator/capture_file.h"
#include "support/temp_dir.h"
#include "tools/lidar_record/survey_of_file.h"

namespace kerul::lidar::record {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::vector<std::uint8_t> Datagram(std::uint8_t frame, std::uint8_t number,
                                   std::size_t bytes = 692) {
  std::vector<std::uint8_t> datagram(bytes, number);
  datagram[0] = 0xEE;
  datagram[1] = 0xFF;
  if (bytes > 675) datagram[675] = frame;
  return datagram;
}

struct Added {
  bool done;
  std::uint64_t count;
  std::string error;
};

// Adds a capture to `name` in the folder.
Added Add(const testing::TempDir& folder, const std::string& capture, const std::string& name) {
  Recording recording(FileNames(folder.File(name)), DescribeRecording("lidar/points", true), {});
  mcap::ChunkBuilder builder(mcap::Compression::kLz4, 0);
  Added added{};
  added.done = AddRawCapture(capture, builder, recording, added.count, added.error);
  EXPECT_TRUE(recording.Finish());
  return added;
}

std::string ThreeDatagrams(const testing::TempDir& folder) {
  simulator::CaptureWriter capture(folder.File("raw.pcap"), {});
  capture.Write(1'000'001, Datagram(7, 1));
  capture.Write(1'000'002, std::vector<std::uint8_t>(100, 9));  // somebody else's
  capture.Write(1'000'003, Datagram(0, 2, 11));
  capture.Write(1'000'004, Datagram(0, 2, 10));  // too short to be looked at
  capture.Write(1'000'005, Datagram(8, 3));
  capture.Close();
  return folder.File("raw.pcap");
}

TEST(RawCapture, DatagramsOfTheSensorAreAddedAsTheyCameAChunkAFrame) {
  const testing::TempDir folder;
  const Added added = Add(folder, ThreeDatagrams(folder), "a.mcap");
  EXPECT_TRUE(added.done) << added.error;
  EXPECT_EQ(added.count, 3U);
  const std::string path = folder.File("a.mcap");
  const mcap::Survey survey = SurveyOf(path);
  EXPECT_THAT(survey.message_counts, ElementsAre(std::pair(kRawChannel, 3U)));
  EXPECT_EQ(survey.sound_chunks, 2U) << "the short one belongs to the frame before it";
  EXPECT_EQ(survey.start_time_ns, 1'000'001'000U);
  EXPECT_EQ(survey.end_time_ns, 1'000'005'000U);
  const mcap::FoundMessage first = MessageOf(path, kRawChannel, 0);
  const std::vector<std::uint8_t> head{0, 1, 0, 0, 0xB4, 2, 0, 0, 0xEE, 0xFF, 1};  // 0x2B4 is 692
  ASSERT_EQ(first.data.size(), 8U + 692U);
  EXPECT_TRUE(std::equal(head.begin(), head.end(), first.data.begin()));
  EXPECT_EQ(MessageOf(path, kRawChannel, 1).data.size(), 8U + 11U);
  EXPECT_EQ(MessageOf(path, kRawChannel, 2).header.sequence, 2U);
}

// As of a capture that still goes on.
TEST(RawCapture, ACaptureCutInsideARecordGivesAllBeforeIt) {
  const testing::TempDir folder;
  const std::string capture = ThreeDatagrams(folder);
  std::filesystem::resize_file(capture, std::filesystem::file_size(capture) - 1);
  const Added added = Add(folder, capture, "a.mcap");
  EXPECT_TRUE(added.done);
  EXPECT_EQ(added.count, 2U);
}

TEST(RawCapture, AFileThatIsNoCaptureIsRefused) {
  const testing::TempDir folder;
  const Added missing = Add(folder, folder.File("none.pcap"), "a.mcap");
  EXPECT_FALSE(missing.done);
  EXPECT_THAT(missing.error, HasSubstr("none.pcap"));
  const Added other = Add(folder, folder.Write("other.pcap", std::string(100, 'x')), "b.mcap");
  EXPECT_FALSE(other.done);
  EXPECT_THAT(other.error, HasSubstr("other.pcap"));
}

}  // namespace
}  // namespace kerul::lidar::record
