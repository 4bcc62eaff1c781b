#include "lidar_record/file_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "support/temp_dir.h"
#include "tools/mcap/sample_file.h"

namespace kerul::lidar::record {
namespace {

using ::testing::HasSubstr;

TEST(FileInfo, TellsChannelsTimesSizesAndDamages) {
  mcap::Survey survey;
  survey.header = {"ros2", "a library"};
  survey.schemas[1] = {1, "a/msg/B", "ros2msg", "12345"};
  survey.channels[2] = {2, 1, "/top\x1b[2Jic", "cdr", {}};
  survey.channels[3] = {3, 0, "/other", "json", {}};
  survey.message_counts[2] = 7;
  survey.messages = 7;
  survey.start_time_ns = 1'700'000'000'250'000'000;
  survey.end_time_ns = 1'700'000'001'500'000'000;
  survey.file_bytes = 1234;
  survey.chunks["zstd"] = {2, 300, 1000};
  survey.chunks[""] = {1, 50, 50};
  survey.damaged_chunks = 1;
  survey.damages.push_back({99, "damaged chunk: its CRC does not match"});
  survey.unread_bytes = 17;
  std::ostringstream out;
  PrintSurvey("f.mcap", survey, out);
  EXPECT_EQ(out.str(),
            "file: f.mcap\n"
            "size: 1234 bytes\n"
            "finished: no, 17 bytes after the last whole record\n"
            "profile: ros2\n"
            "written by: a library\n"
            "messages: 7\n"
            "first: 2023-11-14 22:13:20.250000 UTC\n"
            "last: 2023-11-14 22:13:21.500000 UTC\n"
            "span: 1.250 s\n"
            "chunks: 1, not compressed, 50 of 50 bytes, 100.0 %\n"
            "chunks: 2, zstd, 300 of 1000 bytes, 30.0 %\n"
            "channel 2: /top\\x1B[2Jic, a/msg/B, cdr, 7 messages\n"
            "channel 3: /other, no schema, json, 0 messages\n"
            "schema 1: a/msg/B, ros2msg, 5 bytes\n"
            "damaged chunks: 1\n"
            "damage at byte 99: damaged chunk: its CRC does not match\n");
}

struct Outcome {
  int exit_status;
  std::string out;
  std::string err;
};

Outcome Info(const std::string& path) {
  std::ostringstream out;
  std::ostringstream err;
  const int exit_status = RunInfo(path, out, err);
  return {exit_status, out.str(), err.str()};
}

TEST(FileInfo, TheExitStatusTellsDamageAndNotAMissingEnd) {
  const testing::TempDir folder;
  const std::string whole = mcap::SampleFile(mcap::Compression::kNone);
  EXPECT_EQ(Info(folder.Write("whole", whole)).exit_status, 0);
  const Outcome cut = Info(folder.Write("cut", whole.substr(0, whole.size() - 10)));
  EXPECT_EQ(cut.exit_status, 0);
  EXPECT_THAT(cut.out, HasSubstr("finished: no, "));
  std::string damaged = whole;
  damaged[damaged.find("message 1")] = 'M';
  EXPECT_EQ(Info(folder.Write("damaged", damaged)).exit_status, 1);
}

TEST(FileInfo, WhatCannotBeReadIsNamed) {
  const testing::TempDir folder;
  EXPECT_EQ(Info("/no/file").err, "lidar_record: /no/file: No such file or directory\n");
  EXPECT_EQ(Info(folder.path()).err,
            "lidar_record: " + folder.path().string() + ": not a plain file\n");
  const std::string other = folder.Write("other", std::string("text"));
  const Outcome outcome = Info(other);
  EXPECT_EQ(outcome.exit_status, 1);
  EXPECT_EQ(outcome.err, "lidar_record: " + other + ": it is not an MCAP file\n");
}

}  // namespace
}  // namespace kerul::lidar::record
