#include "lidar_web/page_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "support/temp_dir.h"

namespace kerul::lidar::web {
namespace {

namespace fs = std::filesystem;

TEST(PageFiles, ThePlainFilesOfTheFolderAreThere) {
  const testing::TempDir folder;
  folder.Write("index.html", std::string("<html>"));
  folder.Write("page.js", std::string("script"));
  folder.Write("page.js.gz", std::string("packed"));
  folder.Write(".secret", std::string("x"));
  folder.Write("odd name", std::string("x"));
  fs::create_directory(folder.path() / "sub");
  ASSERT_EQ(mkfifo(folder.File("fifo").c_str(), 0600), 0);
  PageFiles page;
  std::string error;
  ASSERT_TRUE(page.Load(folder.path().string(), error)) << error;
  ASSERT_NE(page.Find("index.html"), nullptr);
  EXPECT_EQ(*page.Find("index.html")->plain, "<html>");
  EXPECT_EQ(page.Find("index.html")->packed, nullptr);
  ASSERT_NE(page.Find("page.js"), nullptr);
  EXPECT_EQ(*page.Find("page.js")->packed, "packed");
  for (const char* name : {".secret", "odd name", "sub", "fifo", "", "..", "Index.html"}) {
    EXPECT_EQ(page.Find(name), nullptr) << name;
  }
}

TEST(PageFiles, AFolderWithoutAPageIsRefused) {
  const testing::TempDir folder;
  PageFiles page;
  std::string error;
  EXPECT_FALSE(page.Load(folder.path().string(), error));
  EXPECT_EQ(error, "no index.html in " + folder.path().string());
  EXPECT_FALSE(page.Load(folder.File("none"), error));
  EXPECT_EQ(error, folder.File("none") + ": No such file or directory");
  EXPECT_TRUE(page.IsEmpty());
}

TEST(PageFiles, AFolderOfOtherThingsIsRefused) {
  const testing::TempDir folder;
  folder.Write("index.html", std::string("<html>"));
  fs::resize_file(folder.Write("huge", std::string("x")), (32U << 20) + 1);
  PageFiles page;
  std::string error;
  EXPECT_FALSE(page.Load(folder.path().string(), error));
  EXPECT_EQ(error, folder.path().string() + " holds more than a page");
}

TEST(PageFiles, ThePageIsFoundBesideTheProgramOrInstalled) {
  const testing::TempDir folder;
  const std::string program = folder.File("bin/lidar_web");
  EXPECT_EQ(FindPageFolder(program), "");
  const fs::path installed = folder.path() / "share/kerul_lidar/page";
  fs::create_directories(installed);
  fs::create_directories(folder.path() / "bin");
  folder.Write("share/kerul_lidar/page/index.html", std::string("x"));
  EXPECT_EQ(FindPageFolder(program), installed.string());
  fs::create_directories(folder.path() / "bin/lidar_web_page");
  folder.Write("bin/lidar_web_page/index.html", std::string("x"));
  EXPECT_EQ(FindPageFolder(program), folder.File("bin/lidar_web_page"));
}

}  // namespace
}  // namespace kerul::lidar::web
