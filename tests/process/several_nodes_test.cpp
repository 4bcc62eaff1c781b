// Two sensors on one computer: a node for each, with its own port and ring.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "process_fixture.h"
#include "ring_tap.h"

namespace kerul::lidar::testing {
namespace {

using ::testing::HasSubstr;

class SeveralNodes : public IsolatedProcessTest {
 protected:
  std::unique_ptr<ChildProcess> StartNamed(const std::string& name) {
    const std::string program = KERUL_BINARY_DIR "/tests/lidar_node_" + name;
    auto node = std::make_unique<ChildProcess>(
        std::vector<std::string>{program, "--cali_path", CalibrationDirectory()}, Directory());
    EXPECT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
    EXPECT_THAT(node->Out(), HasSubstr("default config for lidar \"" + name + "\""));
    return node;
  }
  std::unique_ptr<ChildProcess> StartSensor(const std::string& scene, int port) const {
    return StartSimulator({"--quiet", "--loop", "2", "--rate", "2", "--scene", scene, "--dest-port",
                           std::to_string(port)});
  }
};

TEST_F(SeveralNodes, EachPublishesItsOwnSensorInItsOwnRing) {
  const auto front = StartNamed("test_front");
  const auto rear = StartNamed("test_rear");
  const auto street = StartSensor("street", 2371);
  const auto empty = StartSensor("empty", 2372);
  RingTap front_tap("kerul_lidar_udp_shm_test_front");
  RingTap rear_tap("kerul_lidar_udp_shm_test_rear");
  for (int i = 0; i < 3; ++i) {
    const CollectedFrame* seen = front_tap.NextComplete();
    ASSERT_NE(seen, nullptr) << front->Err();
    // A street shows itself in half of the pixels; the first frame may have begun before the node.
    if (i > 0) {
      EXPECT_GT(CountReturns(*seen), 216 * 288 / 4);
    }
    seen = rear_tap.NextComplete();
    ASSERT_NE(seen, nullptr) << rear->Err();
    EXPECT_LT(CountReturns(*seen), 216 * 288 / 40);
  }
  // Each goes by itself, the other one stays.
  EXPECT_EQ(front->Interrupt(), 0);
  EXPECT_NE(rear_tap.NextComplete(), nullptr);
  EXPECT_EQ(rear->Interrupt(), 0);
}

}  // namespace
}  // namespace kerul::lidar::testing
