// Whole frames in one call, for tests, benchmarks and fuzz seeds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "sensor_simulator/frame_simulator.h"
#include "sensor_simulator/raw_packet.h"

namespace kerul::lidar::simulator {

// The 6912 raw packets of one frame of a scene (street, retro, noise, crosstalk, targets, empty).
// The same arguments give the same bytes. Some 0.1 seconds; for many frames keep a FrameSimulator.
// Throws std::invalid_argument for a scene that is not known.
std::vector<RawPacket> SimulateFrame(const std::string& scene, std::uint32_t frame_number,
                                     const SimulatorOptions& options = {});

// As the node receives them: zeros after the datagram's 692 bytes.
std::vector<UdpPacket> ToUdpPackets(const std::vector<RawPacket>& packets);

}  // namespace kerul::lidar::simulator
