#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

#include "MIPI_reader/parser/lidar_parser.h"
#include "support/allocation_counter.h"
#include "support/kernel_forms.h"

namespace kerul::lidar {
namespace {

class PointPacketTest : public FormsTest {
 protected:
  PointPacketTest() : frame(216, 288, 2) {
    for (int row = 0; row < 216; ++row) {
      for (int col = 0; col < 288; ++col) {
        LidarPoint& point = At(row, col);
        point.row = row;
        point.col = col;
        for (LidarEcho& echo : point.echoes) echo.dist_proc = 1.0F;
        point.echoes[0].refl_proc = static_cast<float>(row % 6 * 6 + col % 6);
        point.echoes[1].refl_proc = 100.0F;
      }
    }
  }
  ~PointPacketTest() override { LidarPoint::echo_num = 1; }

  LidarPoint& At(int row, int col) {
    return frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
  }

  int Encode(int index, int echo = 0, int marker = 0, int mode = 0) {
    return parser.GetPacket_7_10_FromFrame(frame.points, echo, packet, index, 7, mode, 1,
                                           static_cast<std::uint8_t>(marker));
  }

  std::uint32_t Sequence() const {
    std::uint32_t sequence;
    std::memcpy(&sequence, packet.buffer + 225, 4);
    return sequence;
  }

  LidarFrame frame;
  LidarParserQDV11 parser;
  UdpPacket packet{};
};
RUN_IN_EVERY_FORM(PointPacketTest);

TEST_P(PointPacketTest, HoldsTheBlockColumnByColumn) {
  EXPECT_EQ(Encode(49), 249);  // block row 1, block column 1
  At(6, 6).echoes[0].dist_proc = 2.0F;
  At(11, 11).echoes[0].dist_proc = 3.0F;
  Encode(49);
  int compared = 0;
  for (int i = 0; i < 36; ++i) {
    EXPECT_EQ(packet.buffer[20 + 5 * i + 2], i % 6 * 6 + i / 6);
    ++compared;
  }
  EXPECT_EQ(compared, 36);
  EXPECT_EQ(packet.buffer[20] + 256 * packet.buffer[21], 499);  // 2 m at point 0
  EXPECT_EQ(packet.buffer[25] + 256 * packet.buffer[26], 249);
  EXPECT_EQ(packet.buffer[195] + 256 * packet.buffer[196], 749);  // 3 m at point 35
  EXPECT_EQ(packet.buffer[207], 1);
  EXPECT_EQ(packet.buffer[208], 1);
  EXPECT_EQ(packet.buffer[209], 7);
}

TEST_P(PointPacketTest, TheHeaderTellsTheFrameGeometry) {
  Encode(0, 0, 1);
  EXPECT_EQ(packet.buffer[6] + 256 * packet.buffer[7], 216);
  EXPECT_EQ(packet.buffer[8] + 256 * packet.buffer[9], 288);
  EXPECT_EQ(packet.buffer[10], 36);
  EXPECT_EQ(packet.buffer[11], 48);
  EXPECT_EQ(packet.buffer[12], 1);
  EXPECT_EQ(packet.buffer[13], 4);
}

TEST_P(PointPacketTest, BytesThatNothingNamesKeepTheirValue) {
  std::memset(packet.buffer, 0x5A, sizeof(packet.buffer));
  Encode(3);
  for (const int i : {4, 5, 16, 17, 18, 19, 200, 201, 202, 229, 248, 249, 1499}) {
    EXPECT_EQ(packet.buffer[i], 0x5A) << "at " << i;
  }
}

TEST_P(PointPacketTest, TheSecondPacketHoldsTheSecondEcho) {
  Encode(0, 1, 2);
  EXPECT_EQ(packet.buffer[12], 2);
  EXPECT_EQ(packet.buffer[22], 100);
}

TEST_P(PointPacketTest, AnEchoThatIsNotInUseGetsAHeaderOnly) {
  LidarPoint::echo_num = 1;
  parser.udp_seq_base = 5;
  EXPECT_EQ(Encode(1727, 1, 2), -1);
  EXPECT_EQ(packet.buffer[0], 0xEE);
  EXPECT_EQ(packet.buffer[12], 2);
  EXPECT_EQ(packet.buffer[204], 0xDD);
  EXPECT_EQ(Sequence(), 5U + 2 * 1727 + 1);
  for (int i = 20; i < 200; ++i) EXPECT_EQ(packet.buffer[i], 0) << "at " << i;
  EXPECT_EQ(parser.udp_seq_base, 5U);
  LidarPoint::echo_num = 2;
  EXPECT_EQ(Encode(0, 2), -1);
  EXPECT_EQ(Encode(0, -1), -1);
}

TEST_P(PointPacketTest, TheLastBlockMovesTheBaseAfterItsOwnNumber) {
  parser.udp_seq_base = 100;
  Encode(1726);
  EXPECT_EQ(parser.udp_seq_base, 100U);
  Encode(1727);
  EXPECT_EQ(Sequence(), 1827U);
  EXPECT_EQ(parser.udp_seq_base, 1828U);
}

TEST_P(PointPacketTest, WithTwoPacketsABlockOnlyTheSecondMovesTheBase) {
  parser.udp_seq_base = 100;
  Encode(1727, 0, 1);
  EXPECT_EQ(Sequence(), 100U + 3454);
  EXPECT_EQ(parser.udp_seq_base, 100U);
  Encode(1727, 1, 2);
  EXPECT_EQ(Sequence(), 100U + 3455);
  EXPECT_EQ(parser.udp_seq_base, 100U + 3456);
  Encode(0, 0, 1);
  EXPECT_EQ(Sequence(), 100U + 3456);
}

TEST_P(PointPacketTest, TheTimeIsTheSystemClock) {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto now = [] {
    return duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
  };
  const auto before = now();
  Encode(0);
  const auto after = now();
  const std::uint8_t* b = packet.buffer + 216;
  const std::int64_t seconds = b[0] * 16777216LL + b[1] * 65536LL + b[2] * 256LL + b[3];
  const std::int64_t micros = b[4] + b[5] * 256LL + b[6] * 65536LL + b[7] * 16777216LL;
  EXPECT_LT(micros, 1000000);
  EXPECT_GE(seconds * 1000000 + micros, before);
  EXPECT_LE(seconds * 1000000 + micros, after);
}

TEST_P(PointPacketTest, ModeTenUsesThePixelsPlaceInTheGrid) {
  parser.angle_grid.rows = 12;
  parser.angle_grid.cols = 12;
  parser.angle_grid.xyz.assign(3 * 144, 0.0F);
  parser.angle_grid.xyz[6 * 12 + 7] = 1.0F;  // plane 0, row 6, column 7
  parser.angle_grid.valid = true;
  At(6, 7).row = 0;  // the point's own fields do not matter
  At(6, 7).col = 0;
  Encode(49, 0, 0, 10);
  EXPECT_EQ(packet.buffer[20 + 5 * 6 + 2], 255);  // point 6: first of the second column
  EXPECT_EQ(packet.buffer[20 + 5 * 6 + 3], 128);
  EXPECT_EQ(packet.buffer[22], 128);
  EXPECT_EQ(packet.buffer[203], 10);
  Encode(2, 0, 0, 10);  // outside the grid
  EXPECT_EQ(packet.buffer[22], 0);
  parser.angle_grid.valid = false;
  Encode(49, 0, 0, 10);
  EXPECT_EQ(packet.buffer[20 + 5 * 6 + 2], 0);
}

TEST_P(PointPacketTest, PixelsThatTheFrameDoesNotHaveAreNoReturn) {
  for (const int index : {1728, 100000, 2147483647, -1, -49, -2147483647 - 1}) {
    std::memset(packet.buffer, 0x5A, sizeof(packet.buffer));
    EXPECT_EQ(Encode(index), 249);
    for (int i = 20; i < 200; ++i) EXPECT_EQ(packet.buffer[i], 0) << "at " << i;
  }
  frame.points.resize(3);
  frame.points[1].resize(2);
  EXPECT_EQ(Encode(0), 249);
  EXPECT_EQ(packet.buffer[20 + 5 * 1 + 2], 6);                    // row 1, column 0
  EXPECT_EQ(packet.buffer[20 + 5 * 3], 0);                        // row 3 is missing
  EXPECT_EQ(packet.buffer[20 + 5 * (6 * 2 + 1)], 0);              // row 1, column 2 too
  EXPECT_EQ(packet.buffer[20 + 5 * (6 * 2 + 2) + 2], 2 * 6 + 2);  // row 2 is whole
}

TEST_P(PointPacketTest, NothingIsAllocated) {
  const long before = AllocationCount();
  for (int mode = 0; mode < 14; ++mode) Encode(5, 0, 0, mode);
  EXPECT_EQ(AllocationCount(), before);
}

constexpr char kLine[] =
    "[DEBUG] LidarEchoMetrics row=7 col=8 i=13 echo_idx=1 dist_raw=1.5 refl_raw=2.25 dist_proc=1 "
    "refl_proc=100 cogh=6.5 cogw=3.25 cogw_high=2.5 conf=0.5 echosum=11 totsum=12 echo_flags=1 "
    "cogw_flag=6 peak=123.456 peak_addr=1000 power=1e+06 noise=14 baseline=15 timming_th=16 "
    "change_noise_noise_append=17 highRefl=1 highReflBlooming=0 afterPulse=1 debug_flag=0 "
    "ground=1 fill_point=0 shot_noise_point=1 shot_noise_group_point=0 detect_pass=1 "
    "bins=[0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,4095] reflectivity_out=100\n";

class EchoMetricsTest : public PointPacketTest {
 protected:
  EchoMetricsTest() {
    parser.echo_metrics_debug = true;
    parser.debug_row = 7;
    parser.debug_col = 8;
    parser.debug_echo = 1;
    LidarEcho& e = At(7, 8).echoes[1];
    e.dist_raw = 1.5F;
    e.refl_raw = 2.25F;
    e.cogh = 6.5F;
    e.cogw = 3.25F;
    e.cogw_high = 2.5F;
    e.conf = 0.5F;
    e.echosum = 11.0F;
    e.totsum = 12.0F;
    e.echo_flags = 1;
    e.cogw_flag = 6;
    e.peak = 123.456F;
    e.peak_addr = 1000;
    e.power = 1e6F;
    e.noise = 14.0F;
    e.baseline = 15.0F;
    e.timming_th = 16.0F;
    e.change_noise_noise_append = 17.0F;
    e.highRefl = e.afterPulse = e.ground = e.shot_noise_point = true;
    for (std::uint16_t i = 0; i < 16; ++i) e.bins[i] = i;
    e.bins[16] = 4095;
  }

  std::string Printed(int index, int echo, int mode = 0) {
    ::testing::internal::CaptureStdout();
    Encode(index, echo, echo == 0 ? 1 : 2, mode);
    return ::testing::internal::GetCapturedStdout();
  }
};
RUN_IN_EVERY_FORM(EchoMetricsTest);

TEST_P(EchoMetricsTest, TheTracedEchoIsPrintedWithARuler) {
  EXPECT_EQ(Printed(49, 1), kLine + std::string(100, '-') + "\n");
}

TEST_P(EchoMetricsTest, NothingElseIsPrinted) {
  EXPECT_EQ(Printed(49, 0), "");     // the other echo
  EXPECT_EQ(Printed(48, 1), "");     // another block
  EXPECT_EQ(Printed(49, 1, 3), "");  // another mode
  // Just beyond the block, whose pixels are rows and columns 6 to 11.
  for (const auto& [row, col] : {std::pair{5, 8}, {12, 8}, {7, 5}, {7, 12}}) {
    parser.debug_row = row;
    parser.debug_col = col;
    EXPECT_EQ(Printed(49, 1), "") << row << ' ' << col;
  }
  parser.debug_row = 7;
  parser.debug_col = 8;
  parser.echo_metrics_debug = false;
  EXPECT_EQ(Printed(49, 1), "");
  parser.echo_metrics_debug = true;
  parser.debug_row = -1;
  EXPECT_EQ(Printed(49, 1), "");
  parser.debug_row = 7;
  parser.debug_col = -1;
  EXPECT_EQ(Printed(49, 1), "");
}

}  // namespace
}  // namespace kerul::lidar
