#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "reference/encoder.h"
#include "reference/merge.h"
#include "reference/para2.h"

namespace reference {
namespace {

UdpPacket Encode(Parser& parser, const LidarFrame& frame, int mode, int index = 0, int marker = 0) {
  UdpPacket packet{};
  PacketRequest request;
  request.output_mode = mode;
  request.echo_output_code = 12;
  request.packet_index = index;
  request.marker = marker;
  request.frame_id = 0x155;
  EXPECT_EQ(EncodePacket(parser, frame.points, packet, request, WallClock{0x01020304, 0x05060708}),
            249);
  return packet;
}

int Distance(const UdpPacket& packet, int point) {
  return packet.buffer[20 + 5 * point] + 256 * packet.buffer[21 + 5 * point];
}

TEST(ReferenceEncoder, DistancesHeightAndGround) {
  LidarFrame frame = MakeFrame(216, 288, 1);
  const float ranges[4] = {0.05F, 0.06F, 1.0F, 40.0F};
  for (std::size_t i = 0; i < 4; ++i) frame.points[i][0].echoes[0].dist_proc = ranges[i];
  LidarEcho& e = frame.points[0][0].echoes[0];
  e.cogh = 6.0F;
  e.ground = true;
  e.refl_proc = 300.0F;
  Parser parser;
  const UdpPacket packet = Encode(parser, frame, 0);
  EXPECT_EQ(Distance(packet, 0), 0);
  EXPECT_EQ(Distance(packet, 1), 14);
  EXPECT_EQ(Distance(packet, 2), 249);
  EXPECT_EQ(Distance(packet, 3), 0);
  EXPECT_EQ(packet.buffer[22], 255);
  EXPECT_EQ(packet.buffer[23], 42);
  EXPECT_EQ(packet.buffer[24], 129);
  EXPECT_EQ(Distance(Encode(parser, frame, 3), 3), 9999);
}

TEST(ReferenceEncoder, HeaderAndSequence) {
  const LidarFrame frame = MakeFrame(216, 288, 2);
  Parser parser;
  parser.udp_seq_base = 1000;
  const UdpPacket packet = Encode(parser, frame, 0, 1727, 2);
  EXPECT_EQ(packet.buffer[0], 0xEE);
  EXPECT_EQ(packet.buffer[3], 10);
  EXPECT_EQ(packet.buffer[6], 216);
  EXPECT_EQ(packet.buffer[8], 288 - 256);
  EXPECT_EQ(packet.buffer[9], 1);
  EXPECT_EQ(packet.buffer[12], 2);
  EXPECT_EQ(packet.buffer[207], 35);
  EXPECT_EQ(packet.buffer[208], 47);
  EXPECT_EQ(packet.buffer[209], 0x55);
  EXPECT_EQ(packet.buffer[211], 0x12);
  EXPECT_EQ(packet.buffer[216], 1);
  EXPECT_EQ(packet.buffer[219], 4);
  EXPECT_EQ(packet.buffer[220], 8);
  EXPECT_EQ(packet.buffer[224], 0x42);
  EXPECT_EQ(packet.buffer[225] + 256 * packet.buffer[226], 1000 + 2 * 1727 + 1);
  EXPECT_EQ(parser.udp_seq_base, 1000U + 3456U);
}

TEST(ReferenceEncoder, FlagBytesAndAngles) {
  LidarFrame frame = MakeFrame(216, 288, 1);
  LidarEcho& e = frame.points[0][0].echoes[0];
  e.cogw_flag = 5;
  e.afterPulse = true;
  e.fill_point = true;
  e.detect_pass = false;
  e.shot_noise_group_point = true;
  Parser parser;
  const UdpPacket flags = Encode(parser, frame, 12);
  EXPECT_EQ(flags.buffer[23], 5 + 32 + 128);
  EXPECT_EQ(flags.buffer[24], 8 + 16);
  EXPECT_EQ(EncodeAngle(-1.0F), 0);
  EXPECT_EQ(EncodeAngle(0.0F), 128);
  EXPECT_EQ(EncodeAngle(1.0F), 255);
  EXPECT_EQ(EncodeAngle(std::numeric_limits<float>::quiet_NaN()), 127);
}

LidarPoint Window(int address, int at, std::uint16_t value) {
  LidarPoint point;
  point.echoes[0].peak_addr = address;
  point.echoes[0].bins[static_cast<std::size_t>(at)] = value;
  return point;
}

TEST(ReferenceMerge, TwoWindowsAreCentredOnTheLargestSum) {
  LidarPoint::echo_num = 1;
  const LidarPoint a = Window(100, 10, 4000);  // at 102
  const LidarPoint b = Window(104, 6, 4000);   // at 102
  const LidarPoint merged = MergePoint({&a, &b});
  EXPECT_EQ(merged.echoes[0].peak_addr, 102);
  EXPECT_EQ(merged.echoes[0].bins[8], 2047);  // 8000 is cut to 4095, then halved
  EXPECT_EQ(merged.echoes[0].totsum, 2047.0F);
  const LidarPoint c = Window(117, 6, 4000);
  EXPECT_EQ(MergePoint({&a, &c}).echoes[0].peak_addr, 0);
}

TEST(ReferenceMerge, FourWindowsPickTheirTripleOrAll) {
  LidarPoint::echo_num = 1;
  LidarPoint p[4] = {Window(0, 8, 9), Window(16, 8, 9), Window(32, 8, 9), Window(1000, 8, 9)};
  EXPECT_EQ(PickAndMergeFour({&p[0], &p[1], &p[2], &p[3]}, 0).mask, 7U);
  p[3].echoes[0].peak_addr = 40;
  EXPECT_EQ(PickAndMergeFour({&p[0], &p[1], &p[2], &p[3]}, 0).mask, 15U);
  p[1].echoes[0].peak_addr = 500;
  p[3].echoes[0].peak_addr = 1000;
  EXPECT_EQ(PickAndMergeFour({&p[0], &p[1], &p[2], &p[3]}, 0).mask, 0U);
}

TEST(ReferenceUpsampling, MergedPixelsHaveTheFixedRange) {
  LidarFrame source = MakeFrame(4, 4, 1);
  LidarFrame target = MakeFrame(8, 8, 1);
  source.frame_id = 9;
  LidarPoint& cur = source.points[2][3];
  cur.row = 2;
  cur.col = 3;
  cur.echoes[0].dist_proc = 5.0F;
  cur.echoes[0].bins[8] = 100;
  ASSERT_TRUE(Upsample(source, target));
  EXPECT_EQ(target.frame_id, 9);
  EXPECT_EQ(target.points[4][6].echoes[0].dist_proc, 5.0F);
  EXPECT_EQ(target.points[4][6].row, 2);
  for (const LidarPoint* merged :
       {&target.points[3][5], &target.points[3][6], &target.points[4][5]}) {
    EXPECT_EQ(merged->echoes[0].dist_proc, 1.2F);
    EXPECT_EQ(merged->row, 0);
  }
  // All addresses are 0: two sources halve the 100, four quarter it.
  EXPECT_EQ(target.points[3][6].echoes[0].refl_proc, 50.0F / 16.0F);
  EXPECT_EQ(target.points[3][5].echoes[0].refl_proc, 25.0F / 16.0F);
  EXPECT_EQ(target.points[7][7].echoes[0].dist_proc, 0.0F);
}

TEST(ReferenceExport, HeaderAndOneRecord) {
  LidarFrame frame = MakeFrame(216, 288, 1);
  EXPECT_EQ(ExportFileBytes(frame, "raw", 7, 12).size(), 36U);
  frame.points[2][258].echoes[0].dist_raw = 1.0F;
  const std::vector<std::uint8_t> bytes = ExportFileBytes(frame, "raw", 7, 12);
  ASSERT_EQ(bytes.size(), 48U);
  EXPECT_EQ(bytes[0], 'Q');
  EXPECT_EQ(bytes[10], 0);
  EXPECT_EQ(bytes[12], 216);
  EXPECT_EQ(bytes[20], 7);
  EXPECT_EQ(bytes[24], 12);
  EXPECT_EQ(bytes[32], 1);
  EXPECT_EQ(bytes[36], 2);
  EXPECT_EQ(bytes[38], 2);
  EXPECT_EQ(bytes[39], 1);
  EXPECT_EQ(bytes[43], 0x3F);  // 1.0F is 0x3F800000
}

TEST(ReferencePara2, ChecksumAndTables) {
  const std::string check = "123456789";
  const std::vector<std::uint8_t> text(check.begin(), check.end());
  EXPECT_EQ(Para2Crc(text.data(), text.size()), 0x0376E6E7U);
  EXPECT_EQ(Para2Crc(nullptr, 0), 0U);

  std::vector<std::uint8_t> main(168960, 0);
  main[0] = 1;
  main[36 * 47] = 1;
  main[82944 + 5] = 48;
  main[165888] = 0xFE;
  main[165889] = 0xFF;
  main[167936] = 0xFF;
  main[167937] = 0xFF;
  const MainTables tables = UnpackMain(main, 36, 48);
  EXPECT_EQ(tables.dist_offset[0], 1033.0F);
  EXPECT_EQ(tables.dist_offset[36 * 47], 693.0F);
  EXPECT_EQ(tables.dist_offset[1], 0.0F);
  EXPECT_EQ(tables.retro_scale[5], 1.5F);
  EXPECT_EQ(tables.dist_curve[0], -2.0F);
  EXPECT_EQ(tables.retro_curve[0], -0.0009765625F);
}

TEST(ReferenceAngles, WithoutDistortionTheRadiusIsTheAngle) {
  kerul::lidar::QndrAngleDatRecord record{};
  record.binning = 0x11;
  record.rows = 288;
  record.cols = 288;
  record.f = 100.0F;
  record.cx = 144.0F;
  record.cy = 144.0F;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&record);
  const kerul::lidar::AngleCalibGrid grid = AngleGrid(bytes, sizeof(record));
  ASSERT_TRUE(grid.valid);
  // Row 142 has its pixel centre on the axis, column 193 lies 50 pixels beside it: 0.5 radians.
  EXPECT_NEAR(AngleAt(grid, 0, 142, 193), std::cos(0.5), 1e-5);
  EXPECT_NEAR(AngleAt(grid, 1, 142, 193), -std::sin(0.5), 1e-5);
  EXPECT_NEAR(AngleAt(grid, 2, 142, 193), 0.0, 1e-6);
  // Rows run downward.
  EXPECT_NEAR(AngleAt(grid, 2, 92, 143), -std::sin(0.5), 1e-5);
  EXPECT_EQ(AngleAt(grid, 0, 142, 143), 0.0F);
  EXPECT_EQ(AngleAt(grid, 2, 142, 143), 1.0F);
  EXPECT_FALSE(AngleGrid(bytes, 77).valid);
  record.f = 800000.0F;
  EXPECT_FALSE(AngleGrid(bytes, sizeof(record)).valid);
}

}  // namespace
}  // namespace reference
