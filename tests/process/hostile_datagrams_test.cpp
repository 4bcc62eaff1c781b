// What anybody on the network may send to the node's port.
#include <chrono>
#include <memory>
#include <string>

#include "MIPI_reader/node/lidar_node.h"
#include "datagram_sender.h"
#include "process_fixture.h"
#include "start_log.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {
namespace {

using namespace std::chrono_literals;

class HostileDatagrams : public IsolatedProcessTest {
 protected:
  // Bursts of every length around the node's ten tries, each with time to be read.
  template <typename SendOne>
  void SendBursts(SendOne send) {
    for (int round = 0; round < 5; ++round) {
      for (int burst = 1; burst <= 30; ++burst) {
        for (int i = 0; i < burst; ++i) send();
        std::this_thread::sleep_for(2ms);
      }
    }
  }
  void ExpectUnharmed(ChildProcess& node) {
    EXPECT_EQ(node.WaitForExit(0ms), std::nullopt) << node.Err();
    EXPECT_EQ(node.Interrupt(), 0);
    EXPECT_EQ(node.Out(), StartLog(kSensorId, "local_cache", kSensorId) +
                              "Interrupt signal (2) received.\n" + kClosingLines);
    EXPECT_EQ(node.Err(), "");
  }
};

// A port scan. The read after an empty datagram finds nothing.
TEST_F(HostileDatagrams, EmptyOnesDoNotEndAnIdleNode) {
  const auto node = StartCalibratedNode();
  const DatagramSender scanner;
  SendBursts([&] { scanner.Send({}); });
  ExpectUnharmed(*node);
}

// The wait says ready, and the read throws the datagram away and finds nothing.
TEST_F(HostileDatagrams, FalseChecksumsDoNotEndAnIdleNode) {
  const auto node = StartCalibratedNode();
  const DatagramSender scanner;
  SendBursts([&] { scanner.SendDamaged(); });
  ExpectUnharmed(*node);
}

std::vector<std::uint8_t> SensorPacket(int frame_id, int index) {
  const UdpPacket packet = MakeRawPacket(frame_id, index);
  return {packet.buffer, packet.buffer + kRawPacketBytes};
}

TEST_F(HostileDatagrams, ASecondSenderOfPacketsThatLookRightIsNamedOnce) {
  const auto node = StartCalibratedNode();
  const DatagramSender sensor;
  const DatagramSender second("127.0.0.2");
  const DatagramSender third("127.0.0.3");
  second.Send(std::vector<std::uint8_t>(100, 0x55));  // none of the sensor's
  for (int i = 0; i < 5; ++i) {
    sensor.Send(SensorPacket(1, i));
    second.Send(SensorPacket(1, 5 + i));
    third.Send(SensorPacket(1, 10 + i));
  }
  const std::string line =
      "[WARN] [LidarNode][QNDR_001_node] packets come from a second sender, 127.0.0.2, beside "
      "127.0.0.1: their pixels share one frame\n";
  EXPECT_TRUE(node->WaitFor(Stream::kErr, line));
  EXPECT_EQ(node->Interrupt(), 0);
  EXPECT_EQ(node->Err(), line);
}

// The setting is compiled in, so this node runs inside the test.
TEST_F(HostileDatagrams, WithASenderSetNobodyElsesPacketsAreTaken) {
  DefaultConfig config = default_config::kConfig;
  config.recv_sender_ip = "127.0.0.1";
  config.run_once = true;  // ends with its first frame
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const auto node = std::make_unique<LidarNode>("A_node", config,
                                                (Directory() / CalibrationDirectory()).string());
  const DatagramSender sensor;
  const DatagramSender neighbour("127.0.0.2");
  for (int i = 0; i < 50; ++i) neighbour.Send(SensorPacket(7, 6911));  // each would end a frame
  sensor.Send(SensorPacket(9, 6911));
  node->JoinWorker();
  const std::string err = ::testing::internal::GetCapturedStderr();
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find(", frame_id: 10, received_count:1\n"), std::string::npos) << out;
  EXPECT_EQ(out.find(", frame_id: 8, "), std::string::npos) << out;
  EXPECT_EQ(err, "");
}

}  // namespace
}  // namespace kerul::lidar::testing
