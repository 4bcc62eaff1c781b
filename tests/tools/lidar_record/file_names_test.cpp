#include "lidar_record/file_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mcap/file_writer.h"
#include "support/temp_dir.h"
#include "tools/mcap/sample_file.h"

namespace kerul::lidar::record {
namespace {

using mcap::Compression;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(FileNames, TheFirstNameHasNoNumberAndTheNextIsAfterTheHighest) {
  const testing::TempDir folder;
  const FileNames names(folder.File("a.mcap"));
  EXPECT_EQ(names.Next(), folder.File("a.mcap"));
  folder.Write("a.mcap", std::string());
  EXPECT_EQ(names.Next(), folder.File("a_0001.mcap"));
  folder.Write("a_0007.mcap", std::string());
  EXPECT_EQ(names.Next(), folder.File("a_0008.mcap")) << "gaps are left";
  folder.Write("a_12345.mcap", std::string());
  EXPECT_EQ(names.Next(), folder.File("a_12346.mcap"));
}

TEST(FileNames, AFirstFileThatWasTakenAwayDoesNotBringItsNameBack) {
  const testing::TempDir folder;
  folder.Write("a_0001.mcap", std::string());
  EXPECT_EQ(FileNames(folder.File("a.mcap")).Next(), folder.File("a_0002.mcap"));
}

TEST(FileNames, OtherFilesDoNotCount) {
  const testing::TempDir folder;
  for (const char* other : {"b.mcap", "a_x.mcap", "a_1x.mcap", "a_.mcap", "a_-1.mcap",
                            "a_0000.mcap", "a_3.mcap.part", "aa_0004.mcap", "a_99999999999.mcap"}) {
    folder.Write(other, std::string());
  }
  EXPECT_EQ(FileNames(folder.File("a.mcap")).Next(), folder.File("a.mcap"));
}

TEST(FileNames, ANameWithoutFolderOrEndingIsNumberedToo) {
  const testing::TempWorkingDir folder;
  EXPECT_EQ(FileNames("run").Next(), "run");
  std::ofstream("run") << "x";
  EXPECT_EQ(FileNames("run").Next(), "run_0001");
}

TEST(FileNames, FilesThatWereNotFinishedAreToldWithTheirWholeChunks) {
  const testing::TempDir folder;
  const std::string whole = mcap::SampleFile(Compression::kZstd, true);
  const std::string unfinished = mcap::SampleFile(Compression::kZstd, false);
  folder.Write("a.mcap", whole);
  folder.Write("a_0001.mcap", unfinished);
  folder.Write("a_0002.mcap", unfinished.substr(0, unfinished.size() - 100));
  folder.Write("a_0003.mcap", std::string("no such file"));
  folder.Write("b_0004.mcap", unfinished);
  EXPECT_THAT(FileNames(folder.File("a.mcap")).UnfinishedFiles(),
              ElementsAre(folder.File("a_0001.mcap") + " was not finished: 3 whole chunks",
                          folder.File("a_0002.mcap") + " was not finished: 2 whole chunks"));
}

TEST(FileNames, AFileThatIsBeingWrittenIsNotToldAsUnfinished) {
  const testing::TempDir folder;
  const FileNames names(folder.File("a.mcap"));
  mcap::FileWriter writer;
  ASSERT_TRUE(writer.Create(names.Next(), mcap::SampleDescription()));
  EXPECT_THAT(names.UnfinishedFiles(), IsEmpty());
}

}  // namespace
}  // namespace kerul::lidar::record
