#include <algorithm>
#include <cmath>

#include "source/loopback.h"
#include "support/ground_settings_builder.h"
#include "support/node_fixture.h"

namespace kerul::lidar::testing {
namespace {

class RowPipeline : public NodeFixture {
 protected:
  LidarPoint& Pixel(int row, int col) {
    return Access().frame().points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
  }
  // Published distance word of a pixel in the packets taken.
  static int Distance(const std::vector<std::uint8_t>& packet, int point) {
    const std::size_t at = static_cast<std::size_t>(20 + 5 * point);
    return packet[at] + 256 * packet[at + 1];
  }
};

TEST_F(RowPipeline, WithCalibrationOffRawRangesAreStillRecordedAndSent) {
  DefaultConfig config = TestConfig();
  config.calib_enable = false;
  StartNode(config);
  Pixel(7, 13).echoes[0].dist_raw = 2.0F;
  Pixel(7, 13).echoes[0].refl_raw = 99.0F;
  Pixel(7, 13).echoes[1].dist_raw = 1.0F;  // nearer, but nothing orders the echoes
  Access().ProcessMiniflashRow(1);
  EXPECT_EQ(Access().cur_dist_map()[7 * 288 + 13], 2.0F);
  const auto packets = TakePublished();
  ASSERT_EQ(packets.size(), 48U);
  // Column group 2 holds columns 12..17: point 7 is column 13, row 7.
  EXPECT_EQ(Distance(packets[2], 7), 499);
  EXPECT_EQ(packets[2][20 + 5 * 7 + 2], 99);
}

TEST_F(RowPipeline, WithOneEchoSlotTheOrderingIsSkipped) {
  DefaultConfig config = TestConfig();
  config.echo_num = 1;
  config.neighbor_check_enable = false;
  StartNode(config);
  Pixel(0, 0).echoes[0].dist_raw = 2.0F;
  Pixel(0, 0).echoes[1].dist_raw = 1.0F;
  Pixel(0, 0).echoes[1].dist_proc = 1.0F;
  Pixel(0, 0).echoes[1].peak = 100.0F;
  Access().ProcessMiniflashRow(0);
  EXPECT_EQ(Pixel(0, 0).echoes[0].dist_proc, 2.0F);
  EXPECT_EQ(Distance(TakePublished()[0], 0), 499);
}

TEST_F(RowPipeline, WithTwoEchoSlotsTheNearerEchoGoesOut) {
  DefaultConfig config = TestConfig();
  config.neighbor_check_enable = false;
  StartNode(config);
  Pixel(0, 0).echoes[0].dist_raw = 2.0F;
  Pixel(0, 0).echoes[1].dist_raw = 1.0F;
  Pixel(0, 0).echoes[1].peak = 100.0F;
  Access().ProcessMiniflashRow(0);
  EXPECT_EQ(Pixel(0, 0).echoes[0].dist_proc, 1.0F);
  EXPECT_EQ(Pixel(0, 0).echoes[0].dist_raw, 2.0F);
  EXPECT_EQ(Distance(TakePublished()[0], 0), 249);
}

TEST_F(RowPipeline, EveryPassIsSwitchedByItsOwnSetting) {
  DefaultConfig config = TestConfig();
  StartNode(config);
  Pixel(6, 100).echoes[0].dist_raw = 5.0F;  // alone: neighbour validation erases it
  Access().ProcessMiniflashRow(1);
  EXPECT_EQ(Pixel(6, 100).echoes[0].dist_raw, 0.0F);

  config = TestConfig();
  config.neighbor_check_enable = false;
  StartNode(config);
  Pixel(6, 100).echoes[0].dist_raw = 5.0F;
  Access().ProcessMiniflashRow(1);
  EXPECT_EQ(Pixel(6, 100).echoes[0].dist_raw, 5.0F);
}

// The processed fields are those of before the ground stages, also where the plane's pull takes an
// echo its range.
TEST_F(RowPipeline, AnEchoThatThePlanePullsBehindTheSensorShowsItsRangeOfBefore) {
  DefaultConfig config = TestConfig();
  config.ground_plane_enable = true;
  config.ground_plane_min_points = 20;
  config.ground_plane_inlier_m = 100.0F;
  config.ground_plane_pull = 3.0F;
  config.ground_plane_pull_full_m = 100.0F;
  StartNode(config);
  Access().angle_grid() = ground_builder::DownwardGrid(216, 288);
  // A level ground 1 m below, and one pixel far beyond it.
  for (int row = 4; row < 14; ++row) {
    for (int col = 0; col < 288; ++col) {
      const float z = ground_builder::GetDirection(Access().angle_grid(), row, col).z;
      Pixel(row, col).echoes[0].dist_raw = -1.0F / z;
    }
  }
  Pixel(8, 100).echoes[0].dist_raw = 12.0F;
  Access().ProcessMiniflashRow(1);
  const LidarEcho& echo = Pixel(8, 100).echoes[0];
  EXPECT_TRUE(echo.ground);
  const float z = ground_builder::GetDirection(Access().angle_grid(), 8, 100).z;
  EXPECT_NEAR(echo.dist_raw, 3.0F * (-1.0F / z) - 2.0F * 12.0F, 0.1F);  // the plane is a fit
  EXPECT_LT(echo.dist_raw, 0.0F);
  EXPECT_EQ(echo.dist_proc, 12.0F);
}

TEST_F(RowPipeline, ARowOutsideTheFrameEndsTheProcess) {
  StartNode(TestConfig());
  EXPECT_DEATH(Access().ProcessMiniflashRow(36),
               "src/MIPI_reader/node/./lidar_node_miniflash_processing:1845: .*Assertion "
               "`m_row >= 0 && m_row < miniflash_rows_' failed");
  EXPECT_DEATH(Access().ProcessMiniflashRow(-1), "Assertion `m_row >= 0");
}

TEST_F(RowPipeline, WithTheRingClosedThePassesRunAndNothingIsEncoded) {
  StartNode(TestConfig());
  Access().shm_writer()->Close();
  Pixel(6, 100).echoes[0].dist_raw = 5.0F;
  Access().ProcessMiniflashRow(1);
  EXPECT_EQ(Pixel(6, 100).echoes[0].dist_raw, 0.0F);
  EXPECT_EQ(Access().shm_writer()->Written(), 0U);
  EXPECT_EQ(Access().shm_writer()->WriteErrors(), 0U);
}

TEST_F(RowPipeline, CodeTwelveSendsThePreferredAndTheOtherEchoInTwoPackets) {
  DefaultConfig config = TestConfig();
  config.echo_output_code = 12;
  config.neighbor_check_enable = false;
  StartNode(config);
  Pixel(0, 0).echoes[0].dist_raw = 2.0F;
  Pixel(0, 0).echoes[1].dist_raw = 1.0F;
  Pixel(0, 0).echoes[1].peak = 100.0F;
  Access().ProcessMiniflashRow(0);
  const auto packets = TakePublished();
  ASSERT_EQ(packets.size(), 96U);
  EXPECT_EQ(packets[0][12], 1);
  EXPECT_EQ(packets[1][12], 2);
  EXPECT_EQ(Distance(packets[0], 0), 249);
  EXPECT_EQ(Distance(packets[1], 0), 499);
  EXPECT_EQ(packets[0][211], 0x12);
  EXPECT_EQ(packets[0][208], 0);
  EXPECT_EQ(packets[1][208], 0);
  EXPECT_EQ(packets[2][208], 1);
}

TEST_F(RowPipeline, CodesWithoutASecondEchoSendOnePacketPerBlock) {
  for (const int code : {15, 0, 1, 100}) {
    DefaultConfig config = TestConfig();
    config.echo_output_code = static_cast<std::uint16_t>(code);
    StartNode(config);
    Access().ProcessMiniflashRow(0);
    const std::uint32_t written = Access().shm_writer()->Seq();
    EXPECT_EQ(written, 48U) << code;
    EXPECT_EQ(Access().shm_writer()->Data()[shm_ring::kHeaderBytes + 8 + 12], 0) << code;
  }
}

TEST_F(RowPipeline, OnlyTheFirstTenFailedRingWritesArePrinted) {
  StartNode(TestConfig());
  // Forwarding does not look at the ring again, so that a ring closed under it fails every write.
  Access().shm_writer()->Close();
  ::testing::internal::CaptureStderr();
  Access().ForwardUDP710Row(0);
  const std::string log = ::testing::internal::GetCapturedStderr();
  std::string expected;
  for (int i = 1; i <= 10; ++i) {
    expected +=
        "[LidarNode][A_node] ShmUdpWriter::WriteOne failed write_errors=" + std::to_string(i) +
        "\n";
  }
  EXPECT_EQ(log, expected);
  EXPECT_EQ(Access().shm_writer()->WriteErrors(), 48U);
}

// A node that sends its points to a socket of the test's.
class UdpRow : public NodeFixture {
 protected:
  void SetUp() override {
    config_ = TestConfig();
    config_.calib_enable = false;
    config_.udp_output = true;
    config_.udp_dest_ip = "127.0.0.1";
    config_.udp_dest_port = peer_.Port();
    Start();
  }
  ~UdpRow() override {
    Printed([&] { node_.reset(); });
  }
  void Start() {
    const std::vector<int> before = OpenSockets();
    StartNode(config_);
    for (const int fd : OpenSockets()) {
      if (std::ranges::find(before, fd) == before.end()) output_fd_ = fd;
    }
  }
  // Sends a row and gives what was printed.
  std::string SendRow(int row) {
    return Printed([&] { Access().ForwardUDP710Row(row); });
  }
  int TakeRow() const {
    int packets = 0;
    while (packets < 48 && !peer_.Take().empty()) ++packets;
    return packets;
  }

  const Peer peer_;
  DefaultConfig config_;
  int output_fd_ = -1;
};

TEST_F(UdpRow, AFailedSendLosesThatPacketOnly) {
  SendRow(0);
  EXPECT_EQ(TakeRow(), 48);
  ASSERT_EQ(::close(output_fd_), 0);
  std::string out;
  const std::string err = PrintedAsError([&] { out = SendRow(1); });
  EXPECT_EQ(out, "SocketSource::Send, errno:" + std::to_string(EBADF) + "\n");
  EXPECT_EQ(err,
            "[WARN] [LidarNode][A_node] UDP output goes on after 1 packets that were not sent\n");
  EXPECT_EQ(TakeRow(), 47);
}

}  // namespace
}  // namespace kerul::lidar::testing
