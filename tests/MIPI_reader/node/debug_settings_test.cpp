// The debug settings: where they are handed to, and the lines that a node prints for them.
#include <string>
#include <vector>

#include "bloom/bloom_frame.h"
#include "support/node_fixture.h"

namespace kerul::lidar::testing {
namespace {

class DebugSettings : public NodeFixture {
 protected:
  DebugSettings() {
    config_.debug = {.if_debug = true, .packet_debug = false, .row = 9, .col = 11, .echo = 0};
    // One pass at a time.
    config_.neighbor_check_enable = false;
    config_.ground_enable = false;
    config_.shot_noise_enable = false;
  }

  static std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
  }

  // What the node prints when it runs a row.
  std::string RunRow(int m_row) {
    ::testing::internal::CaptureStdout();
    Access().ProcessMiniflashRow(m_row);
    return ::testing::internal::GetCapturedStdout();
  }

  // A bright target in row 1, and at (9, 11) two echoes that lie in its range; simple tunings.
  void PutBloomScene() {
    Access().bloom_calib() = bloom_test::PlainCalib();
    bloom_test::PutSource(Access().frame(), 8, 8, 10.0F, 40.0F);
    bloom_test::PutEcho(Access().frame(), 9, 11, 10.125F, 80.0F, 0);
    bloom_test::PutEcho(Access().frame(), 9, 11, 10.125F, 60.0F, 1).peak = 100.0F;
  }

  DefaultConfig config_ = TestConfig();
};

TEST_F(DebugSettings, EveryFieldReachesTheParser) {
  config_.debug = {.if_debug = true, .packet_debug = false, .row = 3, .col = 5, .echo = 1};
  StartNode(config_);
  EXPECT_TRUE(Access().parser().echo_metrics_debug);
  EXPECT_FALSE(Access().parser().packet_debug);
  EXPECT_EQ(Access().parser().debug_row, 3);
  EXPECT_EQ(Access().parser().debug_col, 5);
  EXPECT_EQ(Access().parser().debug_echo, 1);
  EXPECT_NE(start_log_.find("[LidarNode][A_node] debug.if_debug=true (pixel echo debug) row=3 "
                            "col=5 echo=1\n"),
            std::string::npos);
  EXPECT_EQ(start_log_.find("debug.packet_debug"), std::string::npos);

  config_.debug = {.if_debug = false, .packet_debug = true, .row = -7, .col = -8, .echo = -9};
  config_.shm_name = UniqueShmName("node");
  StartNode(config_);
  EXPECT_FALSE(Access().parser().echo_metrics_debug);
  EXPECT_TRUE(Access().parser().packet_debug);
  EXPECT_EQ(Access().parser().debug_row, -7);
  EXPECT_EQ(Access().parser().debug_col, -8);
  EXPECT_EQ(Access().parser().debug_echo, -9);
  EXPECT_EQ(start_log_.find("debug.if_debug"), std::string::npos);
  EXPECT_NE(start_log_.find("debug.packet_debug=true"), std::string::npos);
}

TEST_F(DebugSettings, SwitchedOffNothingIsPrinted) {
  config_.debug.if_debug = false;
  StartNode(config_);
  PutBloomScene();
  EXPECT_EQ(RunRow(1), "");
  // The bytes of a packet of another version included.
  UdpPacket other = MakeRawPacket(9, 1);
  other.buffer[3] = 10;
  EXPECT_EQ(Play({MakeRawPacket(9, 0), other}), "");
}

// ---- The bloom trace.

// With the filter off its line comes once in each run that sees a bright target, wherever the
// traced pixel lies: so it shows whether the trace is armed.
TEST_F(DebugSettings, TheBloomTraceIsArmedByTheSwitchAndAPlaceWithoutASign) {
  struct Place {
    bool if_debug;
    int row;
    int col;
    bool armed;
  };
  for (const Place& place : std::vector<Place>{{true, 9, 11, true},
                                               {true, 0, 0, true},
                                               {true, -1, 11, false},
                                               {true, 9, -1, false},
                                               {true, -1, -1, false},
                                               {false, 9, 11, false}}) {
    config_.debug.if_debug = place.if_debug;
    config_.debug.row = place.row;
    config_.debug.col = place.col;
    config_.debug.echo = 1;
    config_.blooming_filter_enable = false;
    config_.output_mode = 1;  // without the encoder's line
    config_.shm_name = UniqueShmName("node");
    StartNode(config_);
    PutBloomScene();
    const std::string where = std::to_string(place.row) + "," + std::to_string(place.col);
    EXPECT_EQ(CountOf(RunRow(1), "[BloomDebug][filter] skip=blooming_filter_disabled pixel=(" +
                                     where + ") echo=1\n"),
              place.armed ? 1U : 0U)
        << where << " " << place.if_debug;
  }
}

// The spill of the target, 0.5 times its power of 40 for a pixel of its block, takes a quarter of
// the first echo and a third of the second.
TEST_F(DebugSettings, ANodePrintsTheBloomTraceOfTheEchoThatIsSet) {
  config_.output_mode = 1;
  const auto lines = [&](int echo) {
    config_.debug.echo = echo;
    config_.shm_name = UniqueShmName("node");
    StartNode(config_);
    PutBloomScene();
    return RunRow(1);
  };
  const auto expected = [](const std::string& echo, const std::string& power,
                           const std::string& result) {
    return "[BloomDebug][mark] pixel=(9,11) echo=" + echo +
           " raw_dist=10.125 proc_dist=10.125 raw_refl=40 proc_refl=40 cogh=100 power=" + power +
           " highRefl=0 threshold=235 high_ref_sources=1 dist_gate_m=0.25\n"
           "[BloomDebug][mark] source=(8,8) src_dist=10 src_power=40 dist_diff=0.125 matched=1\n"
           "[BloomDebug][mark] result=marked_by_source source=(8,8)\n"
           "[BloomDebug][filter_block] echo=" +
           echo +
           " m_row=1 m_col=1 dist_pattern_enabled=0 dist_neighbor_enabled=0 dist_std_gain=1"
           " edge_neighbor_gain=1\n"
           "[BloomDebug][filter][psf] source=(8,8) src_dist=10 src_power=40 dist_diff=0.125"
           " psf_w=0.5 contribution=20 filterpower_sum=20\n"
           "[BloomDebug][filter][gain] psf_sum=20 psf_coeff=1 filterpower_psf=20"
           " pattern_enabled=0 pattern_score=-1 gate_energy=1 dist_std_gain=1"
           " edge_neighbor_gain=1 final_filterpower=20\n"
           "[BloomDebug][filter][result] power=" +
           power + result;
  };
  EXPECT_EQ(lines(0), expected("0", "80",
                               " pr=60 ratio=0.75 action=scale_refl out_dist=10.125"
                               " out_refl=30\n"));
  EXPECT_EQ(lines(1), expected("1", "60",
                               " pr=40 ratio=0.666667 action=scale_refl out_dist=10.125"
                               " out_refl=26.6667\n"));
}

// ---- The encoder's line.

// Point 33 of its block: columns of six, column 11 is the sixth of block 1 and row 9 the fourth.
std::string MetricsHead(const std::string& echo) {
  return "[DEBUG] LidarEchoMetrics row=9 col=11 i=33 echo_idx=" + echo + " dist_raw=";
}

TEST_F(DebugSettings, ANodePrintsTheTracedEchoAsItIsSent) {
  config_.high_ref_blooming = false;
  StartNode(config_);
  LidarEcho& echo = Access().frame().points[9][11].echoes[0];
  echo.dist_raw = 2.5F;
  echo.refl_raw = 99.0F;
  echo.cogh = 12.0F;
  echo.peak = 30.0F;
  echo.peak_addr = 77;
  EXPECT_EQ(RunRow(0), "");
  EXPECT_EQ(RunRow(1),
            MetricsHead("0") +
                "2.5 refl_raw=99 dist_proc=2.5 refl_proc=99 cogh=12 cogw=0 cogw_high=0 conf=0"
                " echosum=0 totsum=0 echo_flags=0 cogw_flag=0 peak=30 peak_addr=77 power=0 noise=0"
                " baseline=0 timming_th=0 change_noise_noise_append=0 highRefl=0"
                " highReflBlooming=0 afterPulse=0 debug_flag=0 ground=0 fill_point=0"
                " shot_noise_point=0 shot_noise_group_point=0 detect_pass=1"
                " bins=[0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0] reflectivity_out=99\n" +
                std::string(100, '-') + "\n");
  EXPECT_EQ(RunRow(2), "");
}

TEST_F(DebugSettings, TheEncodersLineIsOfTheEchoThatIsSetAndOfOutputModeZero) {
  config_.echo_output_code = 12;
  config_.debug.echo = 1;
  config_.high_ref_blooming = false;
  StartNode(config_);
  const std::string lines = RunRow(1);
  EXPECT_EQ(lines.rfind(MetricsHead("1"), 0), 0U) << lines;
  EXPECT_EQ(CountOf(lines, "LidarEchoMetrics"), 1U);

  config_.output_mode = 1;
  config_.shm_name = UniqueShmName("node");
  StartNode(config_);
  EXPECT_EQ(RunRow(1), "");
}

// ---- The line for each packet.

TEST_F(DebugSettings, ANodePrintsALineForEachPacketAndForEachOtherVersion) {
  config_.debug.if_debug = false;
  config_.debug.packet_debug = true;
  StartNode(config_);
  UdpPacket other = MakeRawPacket(9, 1);
  other.buffer[3] = 10;
  // Packet 300: 108 into row 1, so slot 2, and its last pixel is the ninth of run 1, place 4.
  EXPECT_EQ(Play({MakeRawPacket(9, 300), other}),
            "[PacketDebug] packet_type=0 frame_id=9 scan_mode=0 mipi_packet_id=0 subpkt_id=4"
            " slot_id=2 group_id=1 total_packet_id=300 frame_duration=0 timestamp=0 pixel_id=116"
            " udp_sequence_num=301 m_row=1\n"
            "[DEBUG] skipping packet v7.10\n");
}

}  // namespace
}  // namespace kerul::lidar::testing
