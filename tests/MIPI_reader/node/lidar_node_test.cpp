#include <fstream>

#include "support/node_fixture.h"
#include "support/start_lines.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {
namespace {

using NodeBringUp = NodeFixture;

TEST_F(NodeBringUp, AnUnknownModuleTypeThrowsBeforeAnythingIsOpened) {
  DefaultConfig config = TestConfig();
  config.module_type = 2;
  EXPECT_EQ(StartFailure(config), "module_type do not supported: 2");
  EXPECT_EQ(start_log_, "");
}

TEST_F(NodeBringUp, AnUnknownDataSourceThrowsBeforeAnythingIsOpened) {
  DefaultConfig config = TestConfig();
  config.data_source = 3;
  EXPECT_EQ(StartFailure(config), "data_source do not supported: 3");
  EXPECT_EQ(start_log_, "");
}

TEST_F(NodeBringUp, MoreThanTwoEchoesThrowBeforeAnythingIsOpened) {
  DefaultConfig config = TestConfig();
  config.echo_num = 3;
  EXPECT_EQ(StartFailure(config), "echo_num do not supported: 3");
  EXPECT_EQ(start_log_, "");
}

TEST_F(NodeBringUp, ACaptureSourceNeedsAPath) {
  DefaultConfig config = TestConfig();
  config.data_source = 2;
  EXPECT_EQ(StartFailure(config), "DATA_FROM_PCAP requires non-empty pcap_path in embedded config");
  EXPECT_EQ(start_log_, "");
}

TEST_F(NodeBringUp, AMissingCaptureEndsTheStart) {
  DefaultConfig config = TestConfig();
  config.data_source = 2;
  config.pcap_path = "/nonexistent/a.pcap";
  EXPECT_EQ(StartFailure(config), "Fail to open .pcap file: \"/nonexistent/a.pcap\"");
  EXPECT_EQ(start_log_,
            "[INFO] Trying to open pcap file: \"/nonexistent/a.pcap\"\nSource::Close()\n");
}

TEST_F(NodeBringUp, AFileThatIsNoCaptureEndsTheStart) {
  const TempDir directory;
  DefaultConfig config = TestConfig();
  config.data_source = 2;
  config.pcap_path = (directory.path() / "a.pcap").string();
  std::ofstream(config.pcap_path) << "not a capture, though as long as its header";
  EXPECT_EQ(StartFailure(config), "Not a valid .pcap file: \"" + config.pcap_path + "\"");
  EXPECT_EQ(start_log_,
            "[INFO] Trying to open pcap file: \"" + config.pcap_path + "\"\nSource::Close()\n");
}

TEST_F(NodeBringUp, ACaptureIsReportedInPlaceOfThePort) {
  const TempDir directory;
  DefaultConfig config = TestConfig();
  config.data_source = 2;
  config.pcap_path = (directory.path() / "a.pcap").string();
  std::ofstream(config.pcap_path, std::ios::binary)
      << "\xD4\xC3\xB2\xA1" << std::string(20, '\0');  // a header and nothing after it
  StartNode(config);
  const std::string lines = NodeLines(start_log_);
  const std::string opening = "[INFO] Trying to open pcap file: \"" + config.pcap_path + "\"\n" +
                              kANode.Plain("pcap=" + config.pcap_path) +
                              kANode.Plain("output=SHM name=" + config.shm_name +
                                           " size=" + std::to_string(config.shm_size)) +
                              kANode.Green("cogh_efficiant load succssed (default_tables)");
  EXPECT_EQ(lines.substr(0, opening.size()), opening);
}

TEST_F(NodeBringUp, ARegionTooSmallForTheRingEndsTheStart) {
  DefaultConfig config = TestConfig();
  config.shm_size = 3035;
  EXPECT_EQ(StartFailure(config), "ShmUdpWriter::Open failed: " + config.shm_name);
  EXPECT_EQ(NodeLines(start_log_), kANode.Plain("recv=:0"));
}

TEST_F(NodeBringUp, AFailingCalibrationLeavesNoThreadBehind) {
  DefaultConfig config = TestConfig();
  config.tables.dist_curve.clear();
  EXPECT_EQ(StartFailure(config), "Invalid dist calib data (expect curve=512, offset=288*288)");
  EXPECT_EQ(node_, nullptr);
}

TEST_F(NodeBringUp, InputAndOutputAreReported) {
  DefaultConfig config = TestConfig();
  config.recv_ip = "";
  StartNode(config);
  EXPECT_NE(start_log_.find("[LidarNode][A_node] recv=:0\n"), std::string::npos);
  EXPECT_NE(start_log_.find("[LidarNode][A_node] output=SHM name=" + config.shm_name +
                            " size=" + std::to_string(config.shm_size) + "\n"),
            std::string::npos);
}

TEST_F(NodeBringUp, UdpOutputIsReportedAndNeedsNoRing) {
  DefaultConfig config = TestConfig();
  config.udp_output = true;
  config.udp_dest_port = 0;
  StartNode(config);
  EXPECT_NE(start_log_.find("[LidarNode][A_node] output=UDP 127.0.0.1:0\n"), std::string::npos);
  EXPECT_EQ(Access().shm_writer(), nullptr);
}

TEST_F(NodeBringUp, DebugSwitchesAreReported) {
  DefaultConfig config = TestConfig();
  config.debug.if_debug = true;
  config.debug.packet_debug = true;
  StartNode(config);
  EXPECT_NE(start_log_.find("[LidarNode][A_node] debug.if_debug=true (pixel echo debug) row=44 "
                            "col=174 echo=0\n[LidarNode][A_node] debug.packet_debug=true "
                            "(packet command-line logging)\n"),
            std::string::npos);
}

TEST_F(NodeBringUp, TheParserGetsItsSettingsWithinTheirLimits) {
  DefaultConfig config = TestConfig();
  config.baseline_samples = 0;
  config.baseline_rise_gate = -1.0F;
  config.baseline_rise_limit = -2.0F;
  config.frame_output_enable = true;
  StartNode(config);
  LidarParserQDV11& parser = Access().parser();
  EXPECT_EQ(parser.baseline_samples, 1);
  EXPECT_EQ(parser.baseline_rise_gate, 0.0F);
  EXPECT_EQ(parser.baseline_rise_limit, 0.0F);
  EXPECT_TRUE(parser.keep_bins);
  EXPECT_EQ(parser.cogw_high_mode, 2);
  EXPECT_TRUE(parser.clip_side_peaks);
  EXPECT_EQ(parser.shot_times, config.tables.shot_times);
}

TEST_F(NodeBringUp, FramesHaveTheParsersSizeAndTwiceIt) {
  StartNode(TestConfig());
  EXPECT_EQ(Access().frame().height, 216);
  EXPECT_EQ(Access().frame().width, 288);
  EXPECT_EQ(Access().upsampled_frame()->height, 432);
  EXPECT_EQ(Access().upsampled_frame()->width, 576);
  EXPECT_EQ(LidarPoint::echo_num, 2);
  EXPECT_EQ(Access().cur_dist_map().size(), 62208U);
  EXPECT_FALSE(Access().prev_dist_map_valid());
}

TEST_F(NodeBringUp, TheMountingMatrixIsComputedFromTheAngles) {
  DefaultConfig config = TestConfig();
  config.transform.yaw = 1.5707963267948966;
  StartNode(config);
  // A quarter turn about z: x goes to y.
  const double* m = Access().transform().rotation;
  EXPECT_NEAR(m[0], 0.0, 1e-7);
  EXPECT_NEAR(m[1], -1.0, 1e-7);
  EXPECT_NEAR(m[3], 1.0, 1e-7);
  EXPECT_NEAR(m[8], 1.0, 1e-7);
}

TEST_F(NodeBringUp, AnInterruptedNodeJoinsOnce) {
  StartNode(TestConfig());
  EXPECT_FALSE(Access().HasThread());
  node_->JoinWorker();
}

TEST_F(NodeBringUp, ALiveNodeStopsWhenAsked) {
  DefaultConfig config = TestConfig();
  LidarNode node("B_node", config, "");
  EXPECT_TRUE(LidarNodeTestAccess{node}.HasThread());
  node.RequestStop();
  node.JoinWorker();
  EXPECT_FALSE(LidarNodeTestAccess{node}.running());
  shm_unlink(config.shm_name.c_str());
}

TEST_F(NodeBringUp, ASenderThatIsNoAddressEndsTheStart) {
  DefaultConfig config = TestConfig();
  config.recv_sender_ip = "the sensor";
  EXPECT_EQ(StartFailure(config), "recv_sender_ip is no IPv4 address: the sensor");
}

}  // namespace
}  // namespace kerul::lidar::testing
