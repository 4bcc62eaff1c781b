#include "lidar_record/record_app.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "lidar_record/channels.h"
#include "lidar_record/extract.h"
#include "support/temp_dir.h"
#include "tools/lidar_record/frame_ring.h"
#include "tools/lidar_record/survey_of_file.h"

namespace kerul::lidar::record {
namespace {

using ::testing::HasSubstr;

struct Outcome {
  int exit_status = -1;
  std::string out;
  std::string err;
};

Outcome Record(const RecordOptions& options, bool stop_at_once = false) {
  std::ostringstream out;
  std::ostringstream err;
  RecordRequests requests;
  requests.stop = stop_at_once;
  const int exit_status = RunRecord(options, requests, false, out, err);
  return {exit_status, out.str(), err.str()};
}

RecordOptions Options(const FrameRing& ring, const std::string& out) {
  RecordOptions options;
  options.stream.shm_name = ring.Name();
  options.out = out;
  return options;
}

// What a ring still holds, recorded as `a.mcap`.
std::string RecordHeld(const testing::TempDir& folder, int frames) {
  FrameRing ring;
  for (int i = 0; i < frames; ++i) ring.WriteFrame();
  RecordOptions options = Options(ring, folder.File("a.mcap"));
  options.mode = Mode::kLast;
  const Outcome outcome = Record(options);
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  return options.out;
}

TEST(RecordApp, LastWritesAllFramesThatTheRingHolds) {
  const testing::TempDir folder;
  const std::string path = RecordHeld(folder, 5);
  const mcap::Survey survey = SurveyOf(path);
  EXPECT_TRUE(survey.finished);
  EXPECT_TRUE(survey.damages.empty());
  EXPECT_EQ(survey.messages, 5U);
  EXPECT_EQ(survey.sound_chunks, 5U) << "a chunk a frame";
  EXPECT_EQ(survey.channels.at(kCloudChannel).topic, "/lidar/points");
  EXPECT_EQ(survey.start_time_ns, 1'700'000'000'050'000'000U);
  EXPECT_EQ(survey.end_time_ns, 1'700'000'000'450'000'000U);
}

// 5000 slots hold two frames and a part of a third.
TEST(RecordApp, LastWritesTheWholeFramesOfARingThatHasWrapped) {
  const testing::TempDir folder;
  FrameRing ring(5000);
  for (int i = 0; i < 10; ++i) ring.WriteFrame();
  RecordOptions options = Options(ring, folder.File("a.mcap"));
  options.mode = Mode::kLast;
  const Outcome outcome = Record(options);
  EXPECT_EQ(outcome.exit_status, 0) << outcome.err;
  EXPECT_EQ(outcome.out.substr(0, 9), "2 frames,");
  const mcap::Survey survey = SurveyOf(options.out);
  EXPECT_EQ(survey.messages, 2U);
  EXPECT_EQ(survey.start_time_ns, 1'700'000'000'850'000'000U);
  EXPECT_EQ(survey.end_time_ns, 1'700'000'000'950'000'000U);
}

TEST(RecordApp, EndsAfterSoManyFramesAndNeverOverwrites) {
  const testing::TempDir folder;
  FrameRing ring;
  const RingFeeder feeder(ring);
  RecordOptions options = Options(ring, folder.File("a.mcap"));
  options.frames = 3;
  options.seconds = 60.0;
  EXPECT_EQ(Record(options).exit_status, 0);
  const std::string first = folder.Read("a.mcap");
  options.frames = 2;
  EXPECT_EQ(Record(options).exit_status, 0);
  EXPECT_EQ(SurveyOf(folder.File("a.mcap")).messages, 3U);
  EXPECT_EQ(SurveyOf(folder.File("a_0001.mcap")).messages, 2U);
  EXPECT_TRUE(folder.Read("a.mcap") == first);
}

TEST(RecordApp, WithoutFramesThereIsNoFileAndTheReasonIsTold) {
  const testing::TempDir folder;
  const ShmTestName missing;
  RecordOptions options;
  options.stream.shm_name = missing.str();
  options.out = folder.File("a.mcap");
  options.seconds = 0.05;
  const Outcome outcome = Record(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err,
            "lidar_record: no frame came from ring " + missing.str() + " (not there)\n");
  EXPECT_FALSE(std::filesystem::exists(options.out));
  options.mode = Mode::kLast;
  EXPECT_EQ(Record(options).exit_status, 1);
}

TEST(RecordApp, AStopRequestEndsIt) {
  const testing::TempDir folder;
  const FrameRing ring;
  EXPECT_EQ(Record(Options(ring, folder.File("a.mcap")), true).exit_status, 1);
}

TEST(RecordApp, AFileThatCannotBeMadeEndsItWithTheReason) {
  const testing::TempDir folder;
  FrameRing ring;
  const RingFeeder feeder(ring);
  const Outcome outcome = Record(Options(ring, folder.File("no/a.mcap")));
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err, "lidar_record: cannot write " + folder.File("no/a.mcap") +
                             ": No such file or directory\n");
}

TEST(RecordApp, ACaptureThatCannotBeReadIsAFailureAfterTheFrames) {
  const testing::TempDir folder;
  FrameRing ring;
  ring.WriteFrame();
  RecordOptions options = Options(ring, folder.File("a.mcap"));
  options.mode = Mode::kLast;
  options.raw_capture = folder.File("no.pcap");
  const Outcome outcome = Record(options);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("no.pcap"));
  const mcap::Survey survey = SurveyOf(options.out);
  EXPECT_TRUE(survey.finished);
  EXPECT_EQ(survey.messages, 1U);
}

TEST(RecordApp, TheTopicStandsWithALeadingSlash) {
  EXPECT_EQ(DescribeRecording("a/b", false).channels[0].topic, "/a/b");
  EXPECT_EQ(DescribeRecording("/a/b", false).channels[0].topic, "/a/b");
  EXPECT_EQ(DescribeRecording("a", false).channels.size(), 1U);
  const mcap::FileDescription with_raw = DescribeRecording("a", true);
  ASSERT_EQ(with_raw.channels.size(), 2U);
  EXPECT_EQ(with_raw.channels[1].topic, "/lidar/raw_packets");
  EXPECT_EQ(with_raw.header.profile, "ros2");
}

TEST(RecordExtract, ACloudIsWrittenAsEveryKindOfFile) {
  const testing::TempDir folder;
  ExtractOptions options;
  options.file = RecordHeld(folder, 3);
  options.frame = 2;
  options.pcd = folder.File("f.pcd");
  options.ply = folder.File("f.ply");
  options.las = folder.File("f.las");
  options.png = folder.File("f.png");
  std::ostringstream err;
  EXPECT_EQ(RunExtract(options, err), 0) << err.str();
  EXPECT_THAT(folder.Read("f.pcd"), HasSubstr("\nPOINTS 62208\n"));
  EXPECT_THAT(folder.Read("f.ply"), HasSubstr("\nelement vertex 62208\n"));
  EXPECT_EQ(folder.Read("f.las").substr(0, 4), "LASF");
  EXPECT_EQ(folder.Read("f.png").substr(1, 3), "PNG");
}

TEST(RecordExtract, AFrameOrTopicThatIsNotThereIsToldWithTheNumberOfThoseThatAre) {
  const testing::TempDir folder;
  ExtractOptions options;
  options.file = RecordHeld(folder, 3);
  options.frame = 3;
  options.pcd = folder.File("f.pcd");
  std::ostringstream err;
  EXPECT_EQ(RunExtract(options, err), 1);
  EXPECT_EQ(err.str(), "lidar_record: cloud 3 of " + options.file + ": there are only 3\n");
  options.frame = 0;
  options.topic = "other";
  std::ostringstream no_topic;
  EXPECT_EQ(RunExtract(options, no_topic), 1);
  EXPECT_EQ(no_topic.str(), "lidar_record: cloud 0 of " + options.file + ": there are only 0\n");
  options.topic = "lidar/points";
  EXPECT_EQ(RunExtract(options, err), 0);
}

TEST(RecordExtract, FilesThatCannotBeWrittenAreNamed) {
  const testing::TempDir folder;
  ExtractOptions options;
  options.file = RecordHeld(folder, 1);
  options.pcd = folder.File("no/f.pcd");
  options.png = folder.File("no/f.png");
  std::ostringstream err;
  EXPECT_EQ(RunExtract(options, err), 1);
  EXPECT_THAT(err.str(), HasSubstr("lidar_record: cannot write " + options.pcd +
                                   ": No such file or directory\n"));
  EXPECT_THAT(err.str(), HasSubstr("lidar_record: cannot write " + options.png + ": "));
}

}  // namespace
}  // namespace kerul::lidar::record
