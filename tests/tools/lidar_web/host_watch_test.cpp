#include "lidar_web/host_watch.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace kerul::lidar::web {
namespace {

const std::string kUdp =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode ref pointer drops\n"
    " 2101: 00000000:0940 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 "
    "4243441 2 00000000ea92e2ee 100971\n"
    " 2102: 0100007F:0941 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 "
    "4243442 2 00000000ea92e2ef 5\n"
    " 2103: 0100007F:0940 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 "
    "4243443 2 00000000ea92e2f0 9\n";

TEST(HostWatch, DropsAreTheLastColumnOfThePortsLines) {
  EXPECT_EQ(UdpDrops(kUdp, 2368), 100980U) << "of both sockets";
  EXPECT_EQ(UdpDrops(kUdp, 2369), 5U);
  EXPECT_EQ(UdpDrops(kUdp, 2370), std::nullopt);
}

TEST(HostWatch, LinesThatAreNoSocketsCountNothing) {
  EXPECT_EQ(UdpDrops("", 2368), std::nullopt);
  EXPECT_EQ(UdpDrops("sl\n", 2368), std::nullopt);
  EXPECT_EQ(UdpDrops("sl\n 1: 0100007F:0940", 2368), std::nullopt);
  EXPECT_EQ(UdpDrops("sl\n 1: 0940 x 7\n\n :\n 1: :0940 many\n", 2368), std::nullopt);
  EXPECT_EQ(UdpDrops("sl\n 1: 0100007F:10940 x 7\n", 2368), std::nullopt);
}

TEST(HostWatch, AProcessIsReadAfterItsNameWhateverThatHolds) {
  // State, then words 1 to 21: user and system ticks are 11 and 12, resident pages 21.
  const std::string text =
      "4711 (a) b (c)) S 1 2 3 4 5 6 7 8 9 10 250 50 13 14 15 16 17 18 19 20 1000 22\n";
  ProcessFigures figures;
  ASSERT_TRUE(ReadProcessStat(text, figures));
  EXPECT_EQ(figures.resident_bytes, 1000U * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
  EXPECT_DOUBLE_EQ(figures.cpu_seconds, 300.0 / static_cast<double>(sysconf(_SC_CLK_TCK)));
  EXPECT_FALSE(ReadProcessStat("", figures));
  EXPECT_FALSE(ReadProcessStat("4711 (a) S 1 2 3", figures));
  EXPECT_FALSE(
      ReadProcessStat("4711 (a) S 1 2 3 4 5 6 7 8 9 10 x 50 13 14 15 16 17 18 19 20 1", figures));
}

TEST(HostWatch, ItsOwnProcessIsFound) {
  const std::optional<ProcessFigures> self = HostWatch::Figures(getpid());
  ASSERT_TRUE(self.has_value());
  EXPECT_EQ(self->pid, getpid());
  EXPECT_GT(self->resident_bytes, 100'000U);
  EXPECT_FALSE(HostWatch::Figures(-1).has_value());
}

TEST(HostWatch, AProcessIsToldByItsNameUnlessThereAreTwo) {
  const testing::TempDir folder;
  const std::string name = "wn" + std::to_string(getpid());
  const std::string program = folder.File(name);
  std::filesystem::copy_file("/bin/sleep", program);
  HostWatch watch(name, "", 1);
  EXPECT_FALSE(watch.Node().has_value());
  {
    const testing::ChildProcess first({program, "100"}, folder.path());
    const auto find = [&] { return HostWatch(name, "", 1).Node(); };
    // Its name changes when the program has been loaded.
    for (int i = 0; i < 1000 && !find(); ++i) usleep(1000);
    ASSERT_TRUE(find().has_value());
    EXPECT_EQ(find()->pid, first.pid());
    const testing::ChildProcess second({program, "100"}, folder.path());
    for (int i = 0; i < 1000 && find(); ++i) usleep(1000);
    EXPECT_FALSE(find().has_value()) << "which of the two is not known";
  }
}

TEST(HostWatch, AMappingIsToldByDeviceAndNumber) {
  const std::string maps =
      "55d0-55d1 r--p 00000000 08:01 77   /usr/bin/lidar_node\n"
      "7f00-7f10 rw-s 00000000 00:1a 12345                      /dev/shm/kerul_lidar_udp_shm\n"
      "7ffc-7ffd rw-p 00000000 00:00 0                          [stack]\n";
  EXPECT_TRUE(HasMapping(maps, 0x00, 0x1a, 12345));
  EXPECT_FALSE(HasMapping(maps, 0x00, 0x1b, 12345));
  EXPECT_FALSE(HasMapping(maps, 0x08, 0x1a, 12345));
  EXPECT_FALSE(HasMapping(maps, 0x00, 0x1a, 1234));
  EXPECT_FALSE(HasMapping("", 0, 0, 0));
}

}  // namespace
}  // namespace kerul::lidar::web
