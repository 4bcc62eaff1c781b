#include "support/output_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

namespace fs = std::filesystem;

class OutputFile : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (directory_.path() / name).string(); }
  bool Write(const std::string& name, const std::string& text) {
    return WriteOutputFile(Path(name), text, error_);
  }
  std::string Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  long Entries() const {
    return std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator());
  }

  testing::TempDir directory_;
  std::string error_;
};

TEST_F(OutputFile, ANewOneHoldsAllBytes) {
  const std::string megabytes(3'000'001, 'm');
  EXPECT_TRUE(Write("a", megabytes));
  EXPECT_EQ(Read("a"), megabytes);
  EXPECT_TRUE(Write("b", ""));
  EXPECT_TRUE(fs::is_empty(Path("b")));
  EXPECT_EQ(Entries(), 2);
}

TEST_F(OutputFile, AnOldOneIsReplacedAndKeepsItsRights) {
  ASSERT_TRUE(Write("a", "a long old text"));
  fs::permissions(Path("a"), fs::perms{0640});
  EXPECT_TRUE(Write("a", "new"));
  EXPECT_EQ(Read("a"), "new");
  EXPECT_EQ(fs::status(Path("a")).permissions(), fs::perms{0640});
  EXPECT_EQ(Entries(), 1);
}

TEST_F(OutputFile, ALinkStaysALink) {
  ASSERT_TRUE(Write("a", "old"));
  fs::create_symlink("a", Path("link"));
  EXPECT_TRUE(Write("link", "new"));
  EXPECT_TRUE(fs::is_symlink(Path("link")));
  EXPECT_EQ(Read("a"), "new");
}

TEST_F(OutputFile, ADeviceIsWrittenToAndStays) {
  EXPECT_TRUE(WriteOutputFile("/dev/null", std::string("text"), error_));
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

// The renaming needs write permission for the directory; without it, nothing changes.
TEST_F(OutputFile, AFailureLeavesTheOldOneAndNothingElse) {
  EXPECT_FALSE(Write("none/a", "text"));
  EXPECT_EQ(error_, "No such file or directory");
  fs::create_directory(Path("folder"));
  EXPECT_FALSE(Write("folder", "text"));
  EXPECT_EQ(error_, "Is a directory");
  ASSERT_TRUE(Write("a", "old"));
  // The name beside it is taken: nothing of that name is overwritten.
  const std::string beside = "a.part" + std::to_string(getpid());
  fs::create_symlink("elsewhere", Path(beside));
  EXPECT_FALSE(Write("a", "new"));
  EXPECT_EQ(error_, "File exists");
  EXPECT_EQ(Read("a"), "old");
  EXPECT_TRUE(fs::is_symlink(Path(beside)));
  EXPECT_FALSE(fs::exists(Path("elsewhere")));
}

TEST_F(OutputFile, AFullDiskLeavesTheOldOne) {
  ASSERT_TRUE(Write("a", "old"));
  // A limit of the process on the length of files stands for the full disk.
  struct rlimit before {};
  getrlimit(RLIMIT_FSIZE, &before);
  const struct rlimit small { 1000, before.rlim_max };
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const bool written = Write("a", std::string(5000, 'n'));
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_FALSE(written);
  EXPECT_EQ(error_, "File too large");
  EXPECT_EQ(Read("a"), "old");
  EXPECT_EQ(Entries(), 1);
}

}  // namespace
}  // namespace kerul::lidar
