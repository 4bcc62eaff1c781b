// What anybody on the network may send to the node's port.
#include <chrono>
#include <string>

#include "datagram_sender.h"
#include "process_fixture.h"
#include "start_log.h"

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

}  // namespace
}  // namespace kerul::lidar::testing
