#include "sensor_simulator/frame_packets.h"

#include <algorithm>

#include "sensor_simulator/scenes.h"

namespace kerul::lidar::simulator {

std::vector<RawPacket> SimulateFrame(const std::string& scene, std::uint32_t frame_number,
                                     const SimulatorOptions& options) {
  return EncodeFrame(FrameSimulator(MakeScene(scene), options).Simulate(frame_number));
}

std::vector<UdpPacket> ToUdpPackets(const std::vector<RawPacket>& packets) {
  std::vector<UdpPacket> datagrams(packets.size());
  for (std::size_t i = 0; i < packets.size(); ++i) {
    std::copy(packets[i].begin(), packets[i].end(), datagrams[i].buffer);
    datagrams[i].length = static_cast<std::uint16_t>(kRawPacketBytes);
  }
  return datagrams;
}

}  // namespace kerul::lidar::simulator
