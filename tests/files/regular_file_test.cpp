#include "files/regular_file.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace kerul::lidar {
namespace {

using Bytes = std::vector<std::uint8_t>;

class RegularFile : public ::testing::Test {
 protected:
  std::string Path(const char* name) const { return (directory_.path() / name).string(); }
  std::string Write(const char* name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
    return Path(name);
  }

  testing::TempDir directory_;
  Bytes bytes_{99};
};

TEST_F(RegularFile, IsReadAsAWhole) {
  EXPECT_EQ(ReadRegularFile(Write("some", std::string("a\0\n\xFF", 4)), bytes_), FileFault::kNone);
  EXPECT_EQ(bytes_, (Bytes{'a', 0, '\n', 255}));
  EXPECT_EQ(ReadRegularFile(Write("none", ""), bytes_), FileFault::kNone);
  EXPECT_TRUE(bytes_.empty());
  const std::string megabytes(3'000'001, 'x');
  EXPECT_EQ(ReadRegularFile(Write("large", megabytes), bytes_), FileFault::kNone);
  EXPECT_EQ(bytes_, Bytes(megabytes.begin(), megabytes.end()));
}

TEST_F(RegularFile, ALinkToOneIsFollowed) {
  std::filesystem::create_symlink(Write("some", "abc"), Path("link"));
  EXPECT_EQ(ReadRegularFile(Path("link"), bytes_), FileFault::kNone);
  EXPECT_EQ(bytes_, (Bytes{'a', 'b', 'c'}));
}

TEST_F(RegularFile, OneThatIsNotThereCannotBeOpened) {
  EXPECT_EQ(ReadRegularFile(Path("nowhere"), bytes_), FileFault::kCannotOpen);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(bytes_.empty());
}

// An ordinary open of the FIFO would wait here for ever.
TEST_F(RegularFile, AnythingElseIsNotOneAndNobodyIsWaitedFor) {
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(ReadRegularFile(Path("fifo"), bytes_), FileFault::kNotRegular);
  EXPECT_EQ(ReadRegularFile(directory_.path().string(), bytes_), FileFault::kNotRegular);
  EXPECT_EQ(ReadRegularFile("/dev/zero", bytes_), FileFault::kNotRegular);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  Path("socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(ReadRegularFile(Path("socket"), bytes_), FileFault::kNotRegular);
  close(listener);
}

TEST_F(RegularFile, OneThatGivesLessThanItsSizeIsShorter) {
  const std::string path = "/sys/kernel/mm/transparent_hugepage/enabled";
  std::error_code error;
  if (std::filesystem::file_size(path, error) < 100 || error) {
    GTEST_SKIP() << "no file at hand that states more bytes than it gives";
  }
  EXPECT_EQ(ReadRegularFile(path, bytes_), FileFault::kShorter);
  EXPECT_FALSE(bytes_.empty());
}

}  // namespace
}  // namespace kerul::lidar
