// What lidar_dds says of itself on the wire, as tshark reads it.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "dds/dds_fixture.h"

namespace kerul::lidar::testing {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// The values of the fields in the packets that a filter lets through.
Rows Fields(const std::string& capture, const std::string& filter,
            const std::vector<std::string>& fields) {
  std::vector<std::string> command{"tshark", "-r",     capture, "-Y",         filter,
                                   "-T",     "fields", "-E",    "separator=;"};
  for (const std::string& field : fields) command.insert(command.end(), {"-e", field});
  ChildProcess tshark(command, "/");
  EXPECT_TRUE(tshark.WaitForExit().has_value());
  Rows rows;
  std::istringstream lines(tshark.Out());
  for (std::string line; std::getline(lines, line);) {
    std::istringstream cells(line);
    rows.emplace_back();
    for (std::string cell; std::getline(cells, cell, ';');) rows.back().push_back(cell);
  }
  return rows;
}

std::string HexOf(const std::string& text) {
  std::string hex;
  for (const char character : text) {
    constexpr const char* kDigits = "0123456789abcdef";
    hex += kDigits[character >> 4 & 15];
    hex += kDigits[character & 15];
  }
  return hex;
}

TEST_F(DdsTest, TsharkShowsTopicTypeHashAndEncoding) {
  const std::string capture = File("run.pcapng");
  ChildProcess recorder({"dumpcap", "-q", "-i", "lo", "-w", capture}, directory_.path());
  ASSERT_TRUE(recorder.WaitFor(Stream::kErr, "File: ")) << recorder.Err();
  PretendedNode node("points");
  const auto listener = StartListener("rt/lidar/points", kCloudType, "received");
  // Small enough for one datagram, which tshark dissects without putting fragments together.
  const auto bridge = StartBridge({"--shm", "points", "--every-row", "20", "--every-col", "20"});
  ASSERT_TRUE(AreConnected(*bridge, *listener)) << bridge->Err();

  // DATA of the writer: its key is that of a user's writer without key, 03.
  const std::string data = "rtps.sm.id == 0x15 && rtps.sm.wrEntityId.entityKind == 0x03";
  Rows sent;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (sent.empty() && std::chrono::steady_clock::now() < deadline) {
    TenASecond(3, [&] { node.PublishFrame(); });
    sent =
        Fields(capture, data,
               {"rtps.param.topicName", "rtps.param.typeName", "rtps.param.serialize.encap_kind"});
  }
  ASSERT_FALSE(sent.empty());
  for (const std::vector<std::string>& row : sent) {
    ASSERT_EQ(row.size(), 3U);
    EXPECT_NE(row[0].find("rt/lidar/points"), std::string::npos);
    EXPECT_NE(row[1].find(kCloudType), std::string::npos);
    EXPECT_EQ(row[2], "0x0001") << "CDR, little-endian";
  }
  const Rows announced = Fields(capture, "rtps.param.userData && rtps.param.topicName",
                                {"rtps.param.userData", "rtps.param.topicName"});
  ASSERT_FALSE(announced.empty());
  EXPECT_EQ(announced[0].at(0), HexOf("typehash=RIHS01_9198cabf7da3796ae6fe19c4cb3bdd352549298"
                                      "8c70522628af5daa124bae2b5;"));
  EXPECT_EQ(announced[0].at(1), "rt/lidar/points");
  EXPECT_EQ(bridge->Interrupt(), 0);
}

}  // namespace
}  // namespace kerul::lidar::testing
