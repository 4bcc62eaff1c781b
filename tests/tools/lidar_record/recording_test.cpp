#include "lidar_record/recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/temp_dir.h"
#include "tools/lidar_record/survey_of_file.h"
#include "tools/mcap/sample_file.h"
#include "tools/mcap/size_limit.h"

namespace kerul::lidar::record {
namespace {

using mcap::ChunkBuilder;
using mcap::Compression;
using ::testing::ElementsAre;

// A chunk of one message of 600 bytes at this second.
mcap::Chunk ChunkAt(std::uint64_t second) {
  ChunkBuilder builder(Compression::kNone, 0);
  builder.Add({1, 0, second * 1'000'000'000, 0}, mcap::BytesOf(mcap::SampleText(0)));
  return builder.Finish();
}

std::vector<std::uint64_t> MessagesByFile(const testing::TempDir& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<std::uint64_t> counts;
  for (const std::string& path : paths) {
    const mcap::Survey survey = SurveyOf(path);
    EXPECT_TRUE(survey.finished);
    EXPECT_TRUE(survey.damages.empty());
    counts.push_back(survey.messages);
  }
  return counts;
}

TEST(Recording, WithoutLimitsAllGoesIntoOneFile) {
  const testing::TempDir folder;
  Recording recording(FileNames(folder.File("a.mcap")), mcap::SampleDescription(), {});
  for (std::uint64_t i = 0; i < 5; ++i) ASSERT_TRUE(recording.Write(ChunkAt(i)));
  ASSERT_TRUE(recording.Finish());
  EXPECT_THAT(MessagesByFile(folder), ElementsAre(5));
  EXPECT_EQ(recording.Files(), 1U);
  EXPECT_EQ(recording.Messages(), 5U);
  EXPECT_EQ(recording.Bytes(), std::filesystem::file_size(folder.File("a.mcap")));
}

// One byte less than a finished file of three chunks has.
TEST(Recording, AFileHasTheLargestSizeAtMostWithItsIndex) {
  const testing::TempDir folder;
  std::uint64_t size_of_three = 0;
  {
    const testing::TempDir other;
    Recording three(FileNames(other.File("a.mcap")), mcap::SampleDescription(), {});
    for (std::uint64_t i = 0; i < 3; ++i) ASSERT_TRUE(three.Write(ChunkAt(i)));
    ASSERT_TRUE(three.Finish());
    size_of_three = three.Bytes();
  }
  Recording recording(FileNames(folder.File("a.mcap")), mcap::SampleDescription(),
                      {.bytes = size_of_three - 1});
  for (std::uint64_t i = 0; i < 5; ++i) ASSERT_TRUE(recording.Write(ChunkAt(i)));
  ASSERT_TRUE(recording.Finish());
  EXPECT_THAT(MessagesByFile(folder), ElementsAre(2, 2, 1));
  EXPECT_EQ(recording.Messages(), 5U);
  EXPECT_EQ(recording.Path(), folder.File("a_0002.mcap"));
  std::uint64_t bytes = 0;
  for (const char* name : {"a.mcap", "a_0001.mcap", "a_0002.mcap"}) {
    bytes += std::filesystem::file_size(folder.File(name));
  }
  EXPECT_EQ(recording.Bytes(), bytes);

  const testing::TempDir exact_folder;
  Recording exact(FileNames(exact_folder.File("a.mcap")), mcap::SampleDescription(),
                  {.bytes = size_of_three});
  for (std::uint64_t i = 0; i < 5; ++i) ASSERT_TRUE(exact.Write(ChunkAt(i)));
  ASSERT_TRUE(exact.Finish());
  EXPECT_THAT(MessagesByFile(exact_folder), ElementsAre(3, 2));
}

TEST(Recording, AChunkLargerThanTheLimitHasAFileOfItsOwn) {
  const testing::TempDir folder;
  Recording recording(FileNames(folder.File("a.mcap")), mcap::SampleDescription(), {.bytes = 10});
  for (std::uint64_t i = 0; i < 3; ++i) ASSERT_TRUE(recording.Write(ChunkAt(i)));
  ASSERT_TRUE(recording.Finish());
  EXPECT_THAT(MessagesByFile(folder), ElementsAre(1, 1, 1));
}

TEST(Recording, AFileSpansLessThanTheLongestTime) {
  const testing::TempDir folder;
  Recording recording(FileNames(folder.File("a.mcap")), mcap::SampleDescription(),
                      {.seconds = 3.0});
  // The clock is set back at the end, which is no reason for a new file.
  for (const std::uint64_t second : {10U, 11U, 12U, 13U, 15U, 16U, 2U}) {
    ASSERT_TRUE(recording.Write(ChunkAt(second)));
  }
  ASSERT_TRUE(recording.Finish());
  EXPECT_THAT(MessagesByFile(folder), ElementsAre(3, 2, 2));
}

TEST(Recording, AFolderThatIsNotThereIsToldWithTheFile) {
  const testing::TempDir folder;
  Recording recording(FileNames(folder.File("no/a.mcap")), mcap::SampleDescription(), {});
  EXPECT_FALSE(recording.Write(ChunkAt(0)));
  EXPECT_EQ(recording.Error(),
            "cannot write " + folder.File("no/a.mcap") + ": No such file or directory");
  EXPECT_EQ(recording.Bytes(), 0U);
}

// Two chunks fit, then 300 bytes, too few for an index.
TEST(Recording, AFullDiskIsToldWithWhatTheFileKeeps) {
  const testing::TempDir folder;
  Recording recording(FileNames(folder.File("a.mcap")), mcap::SampleDescription(), {});
  ASSERT_TRUE(recording.Write(ChunkAt(0)));
  ASSERT_TRUE(recording.Write(ChunkAt(1)));
  const std::uint64_t whole = recording.Bytes();
  const mcap::SizeLimit limit(whole + 300);
  EXPECT_FALSE(recording.Write(ChunkAt(2)));
  EXPECT_EQ(recording.Error(),
            "cannot write " + folder.File("a.mcap") +
                ": File too large; it keeps 2 whole chunks, without their index");
  EXPECT_EQ(std::filesystem::file_size(folder.File("a.mcap")), whole);
}

TEST(Recording, AfterFinishTheNextFileBegins) {
  const testing::TempDir folder;
  Recording recording(FileNames(folder.File("a.mcap")), mcap::SampleDescription(), {});
  ASSERT_TRUE(recording.Write(ChunkAt(0)));
  ASSERT_TRUE(recording.Finish());
  ASSERT_TRUE(recording.Write(ChunkAt(1)));
  ASSERT_TRUE(recording.Finish());
  EXPECT_THAT(MessagesByFile(folder), ElementsAre(1, 1));
  EXPECT_EQ(recording.Files(), 2U);
  EXPECT_EQ(recording.Messages(), 2U);
}

}  // namespace
}  // namespace kerul::lidar::record
