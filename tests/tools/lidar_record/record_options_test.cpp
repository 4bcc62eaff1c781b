#include "lidar_record/record_options.h"

#include <gtest/gtest.h>

namespace kerul::lidar::record {
namespace {

struct Parsed {
  bool go_on = false;
  int exit_status = -1;
  CommandLine line;
};

Parsed Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "lidar_record");
  Parsed parsed;
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  parsed.go_on = ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), parsed.line,
                                  parsed.exit_status);
  ::testing::internal::GetCapturedStdout();
  ::testing::internal::GetCapturedStderr();
  return parsed;
}

TEST(RecordOptions, AFileIsAllThatIsNeeded) {
  const Parsed parsed = Parse({"--out", "a.mcap"});
  ASSERT_TRUE(parsed.go_on);
  EXPECT_EQ(parsed.line.command, Command::kRecord);
  const RecordOptions& options = parsed.line.record;
  EXPECT_EQ(options.out, "a.mcap");
  EXPECT_EQ(options.compression, mcap::Compression::kZstd);
  EXPECT_EQ(options.mode, Mode::kStream);
  EXPECT_EQ(options.topic, "lidar/points");
  EXPECT_EQ(options.frames, 0U);
  EXPECT_EQ(options.split_bytes, 0U);
}

TEST(RecordOptions, EachOneIsTaken) {
  const Parsed parsed =
      Parse({"--shm",       "r",  "--out",        "a",   "--compression", "lz4", "--frames",    "9",
             "--seconds",   "2",  "--split-size", "100", "--split-time",  "60",  "--raw",       "c",
             "--topic",     "/t", "--frame-id",   "f",   "--calib",       "d",   "--every-row", "2",
             "--valid-only"});
  ASSERT_TRUE(parsed.go_on);
  const RecordOptions& options = parsed.line.record;
  EXPECT_EQ(options.stream.shm_name, "r");
  EXPECT_EQ(options.stream.calib_dir, "d");
  EXPECT_EQ(options.messages.frame_id, "f");
  EXPECT_EQ(options.messages.every_row, 2);
  EXPECT_TRUE(options.messages.valid_only);
  EXPECT_EQ(options.compression, mcap::Compression::kLz4);
  EXPECT_EQ(options.frames, 9U);
  EXPECT_EQ(options.seconds, 2.0);
  EXPECT_EQ(options.split_bytes, 100U << 20U);
  EXPECT_EQ(options.split_seconds, 60.0);
  EXPECT_EQ(options.raw_capture, "c");
  EXPECT_EQ(options.topic, "/t");
  EXPECT_EQ(Parse({"--out", "a", "--compression", "none"}).line.record.compression,
            mcap::Compression::kNone);
}

TEST(RecordOptions, TheOtherModesAreTaken) {
  EXPECT_EQ(Parse({"--out", "a", "--last"}).line.record.mode, Mode::kLast);
  const Parsed kept = Parse({"--out", "a", "--on-signal", "7.5", "--memory", "64"});
  EXPECT_EQ(kept.line.record.mode, Mode::kOnSignal);
  EXPECT_EQ(kept.line.record.kept_seconds, 7.5);
  EXPECT_EQ(kept.line.record.memory_mib, 64U);
}

TEST(RecordOptions, FilesAreReadBySubcommands) {
  const Parsed info = Parse({"info", "a.mcap"});
  ASSERT_TRUE(info.go_on);
  EXPECT_EQ(info.line.command, Command::kInfo);
  EXPECT_EQ(info.line.info_file, "a.mcap");
  const Parsed extract = Parse({"extract", "a.mcap", "--frame", "3", "--pcd", "b", "--ply", "c",
                                "--las", "d", "--png", "e", "--topic", "t"});
  ASSERT_TRUE(extract.go_on);
  EXPECT_EQ(extract.line.command, Command::kExtract);
  EXPECT_EQ(extract.line.extract.file, "a.mcap");
  EXPECT_EQ(extract.line.extract.frame, 3U);
  EXPECT_EQ(extract.line.extract.pcd, "b");
  EXPECT_EQ(extract.line.extract.ply, "c");
  EXPECT_EQ(extract.line.extract.las, "d");
  EXPECT_EQ(extract.line.extract.png, "e");
  EXPECT_EQ(extract.line.extract.topic, "t");
}

TEST(RecordOptions, HelpEndsWellAndErrorsEndWithOne) {
  EXPECT_EQ(Parse({"--help"}).exit_status, 0);
  EXPECT_EQ(Parse({"extract", "--help"}).exit_status, 0);
  const std::vector<std::vector<const char*>> wrong{
      {},
      {"--bogus"},
      {"--out", "a", "--compression", "bz2"},
      {"--out", "a", "--frames", "0"},
      {"--out", "a", "--split-size", "0"},
      {"--out", "a", "--split-time", "0"},
      {"--out", "a", "--last", "--udp", "7"},
      {"--out", "a", "--last", "--frames", "7"},
      {"--out", "a", "--last", "--on-signal", "7"},
      {"--out", "a", "--on-signal", "0"},
      {"--out", "a", "--memory", "7"},
      {"info"},
      {"extract", "a"},
      {"extract", "a", "--frame", "-1", "--pcd", "b"}};
  std::size_t refused = 0;
  for (const auto& arguments : wrong) {
    const Parsed parsed = Parse(arguments);
    EXPECT_FALSE(parsed.go_on) << refused;
    EXPECT_EQ(parsed.exit_status, 1) << refused;
    ++refused;
  }
  EXPECT_EQ(refused, wrong.size());
}

}  // namespace
}  // namespace kerul::lidar::record
