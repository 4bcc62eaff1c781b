#include "lidar_web/request.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kerul::lidar::web {
namespace {

TEST(WebRequest, EachPathLeadsToItsOwn) {
  EXPECT_EQ(ParseTarget("/stream", "").wanted, Wanted::kStream);
  EXPECT_EQ(ParseTarget("/metrics", "").wanted, Wanted::kMetrics);
  EXPECT_EQ(ParseTarget("/healthz", "").wanted, Wanted::kHealth);
  const Target root = ParseTarget("/", "");
  EXPECT_EQ(root.wanted, Wanted::kPage);
  EXPECT_EQ(root.file, "index.html");
  const Target script = ParseTarget("/page-1_a.js", "");
  EXPECT_EQ(script.wanted, Wanted::kPage);
  EXPECT_EQ(script.file, "page-1_a.js");
  const std::vector<std::pair<const char*, FileFormat>> frames{{"/frame.png", FileFormat::kPng},
                                                               {"/frame.pcd", FileFormat::kPcd},
                                                               {"/frame.ply", FileFormat::kPly},
                                                               {"/frame.las", FileFormat::kLas},
                                                               {"/frame.json", FileFormat::kJson}};
  for (const auto& [path, format] : frames) {
    EXPECT_EQ(ParseTarget(path, "").wanted, Wanted::kFrame) << path;
    EXPECT_EQ(ParseTarget(path, "").format, format) << path;
  }
}

TEST(WebRequest, AStoryNeedsAPixelOfTheFrame) {
  const Target corner = ParseTarget("/story", "row=215&col=287");
  EXPECT_EQ(corner.wanted, Wanted::kStory);
  EXPECT_EQ(corner.row, 215);
  EXPECT_EQ(corner.col, 287);
  EXPECT_EQ(ParseTarget("/story?col=0&x&row=0", "").wanted, Wanted::kStory);
  for (const char* query : {"", "row=1", "col=1", "row=216&col=0", "row=0&col=288", "row=-1&col=0",
                            "row=+1&col=0", "row=1x&col=0", "row=&col=0", "row= 1&col=0",
                            "row=4294967297&col=0", "xrow=1&col=0", "row=1&row=2"}) {
    EXPECT_EQ(ParseTarget("/story", query).wanted, Wanted::kNothing) << query;
  }
}

TEST(WebRequest, AToldStoryHasANameOfTheServers) {
  const std::string name = "0123456789abcdef0123456789abcdef";
  const std::string path = "/story/" + name;
  EXPECT_EQ(ParseTarget(path, "").wanted, Wanted::kToldStory);
  EXPECT_EQ(ParseTarget(path, "").file, name);
  for (const char* other :
       {"/story/", "/story/0123456789abcdef0123456789abcde",
        "/story/0123456789abcdef0123456789abcdef0", "/story/0123456789ABCDEF0123456789abcdef",
        "/story/../../../../../../etc/passwd/aaa"}) {
    EXPECT_EQ(ParseTarget(other, "").wanted, Wanted::kNothing) << other;
  }
}

TEST(WebRequest, TheQueryIsCutOffBeforeAPathIsLookedUp) {
  EXPECT_EQ(ParseTarget("/?view=top", "").file, "index.html");
  EXPECT_EQ(ParseTarget("/metrics?x", "").wanted, Wanted::kMetrics);
  EXPECT_TRUE(ParseTarget("/frame.pcd?floats=1", "").floats);
  EXPECT_TRUE(ParseTarget("/frame.pcd", "t=5&floats=1").floats);
  EXPECT_FALSE(ParseTarget("/frame.pcd", "floats=0").floats);
  EXPECT_FALSE(ParseTarget("/frame.pcd", "xfloats=1").floats);
}

TEST(WebRequest, PathsThatAreNoNamesLeadNowhere) {
  for (const char* path :
       {"", "x", "//", "/..", "/../etc/passwd", "/.git", "/a/b", "/a%2e", "/a b", "/a\\b", "/a\n",
        "/%00", "/C:", "/frame.gif/", "/stream/", "/\xC3\xA4"}) {
    EXPECT_EQ(ParseTarget(path, "").wanted, Wanted::kNothing) << path;
  }
  EXPECT_EQ(ParseTarget("/" + std::string(100, 'a'), "").wanted, Wanted::kPage);
  EXPECT_EQ(ParseTarget("/" + std::string(101, 'a'), "").wanted, Wanted::kNothing);
  EXPECT_EQ(ParseTarget(std::string("/a\0b", 4), "").wanted, Wanted::kNothing);
}

TEST(WebRequest, AddressesAndOwnNamesAreOwnHosts) {
  const std::vector<std::string> names{"lidar.example"};
  for (const char* host :
       {"127.0.0.1", "127.0.0.1:8710", "192.168.1.7:1", "[::1]", "[fe80::1]:8710", "localhost:8710",
        "LocalHost", "lidar.example:8710", "LIDAR.example"}) {
    EXPECT_TRUE(IsOwnHost(host, names)) << host;
  }
  for (const char* host : {"", "evil.example", "evil.example:8710", "127.0.0.1.evil.example",
                           "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:123456", "[::1", "[]", "::1",
                           "localhost@evil.example", "lidar.example.evil"}) {
    EXPECT_FALSE(IsOwnHost(host, names)) << host;
  }
}

TEST(WebRequest, AnAddressIsReadToItsEnd) {
  const std::string zero(1, '\0');
  EXPECT_FALSE(IsOwnHost("127.0.0.1" + zero + ".evil.example", {}));
  EXPECT_FALSE(IsOwnHost("[::1" + zero + "@evil.example]", {}));
}

TEST(WebRequest, OnlyThePageItselfIsNoForeignOrigin) {
  EXPECT_TRUE(IsOwnOrigin("", "127.0.0.1:8710"));
  EXPECT_TRUE(IsOwnOrigin("http://127.0.0.1:8710", "127.0.0.1:8710"));
  for (const char* origin :
       {"null", "http://127.0.0.1", "http://127.0.0.1:8711", "https://127.0.0.1:8710",
        "http://evil.example", "file://", "http://127.0.0.1:8710.evil.example"}) {
    EXPECT_FALSE(IsOwnOrigin(origin, "127.0.0.1:8710")) << origin;
  }
}

TEST(WebRequest, WordsOfAListAreWhole) {
  EXPECT_TRUE(HasWord("kerul-lidar-1", "kerul-lidar-1"));
  EXPECT_TRUE(HasWord("a, kerul-lidar-1 ,b", "kerul-lidar-1"));
  EXPECT_FALSE(HasWord("kerul-lidar-12", "kerul-lidar-1"));
  EXPECT_FALSE(HasWord("", "kerul-lidar-1"));
}

}  // namespace
}  // namespace kerul::lidar::web
