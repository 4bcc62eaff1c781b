#include "sensor_simulator/frame_packets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "sensor_simulator/scenes.h"

namespace kerul::lidar::simulator {
namespace {

TEST(SimulateFrame, GivesWhatAFrameSimulatorGives) {
  SimulatorOptions options;
  options.seed = 9;
  FrameSimulator simulator(MakeScene("retro"), options);
  EXPECT_EQ(SimulateFrame("retro", 4, options), EncodeFrame(simulator.Simulate(4)));
  EXPECT_THROW(SimulateFrame("garden", 0), std::invalid_argument);
}

TEST(ToUdpPackets, BytesAndLengthsAreThoseOfTheDatagrams) {
  const std::vector<RawPacket> packets = SimulateFrame("empty", 0);
  const std::vector<UdpPacket> datagrams = ToUdpPackets(packets);
  ASSERT_EQ(datagrams.size(), packets.size());
  for (std::size_t i = 0; i < packets.size(); ++i) {
    ASSERT_EQ(datagrams[i].length, 692);
    ASSERT_TRUE(std::equal(packets[i].begin(), packets[i].end(), datagrams[i].buffer));
    ASSERT_EQ(datagrams[i].buffer[692], 0);
  }
}

}  // namespace
}  // namespace kerul::lidar::simulator
