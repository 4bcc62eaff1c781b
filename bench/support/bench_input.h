// What the benchmarks are fed with: simulated frames as the packets that the sensor sends.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sensor_simulator/calibration_blobs.h"
#include "sensor_simulator/raw_packet.h"

namespace kerul::lidar::bench {

inline constexpr int kPacketsPerFrame = 6912;
inline constexpr int kPixelsPerFrame = 62208;
inline constexpr int kPointsPerPacket = 9;
inline constexpr int kMiniflashRows = 36;
inline constexpr int kPacketsPerRow = 192;
inline constexpr int kBlocksPerFrame = 1728;  // point packets of a frame, one per block

using RawPacket = simulator::RawPacket;
using FramePackets = std::vector<RawPacket>;  // 6912, in the order in which the sensor sends them

// Scenes by name:
//   street  the simulator's street with three retro-reflective signs more: the usual input
//   plain   the street without any retro-reflector
//   retro, noise, empty  the simulator's scenes
//   full    a half-transparent curtain before a wall: nearly every pixel has both echoes
//   bright  the street with large boards of retro-reflective sheeting: some 2000 bright pixels
// Gives `frames` successive frames; throws std::invalid_argument for another name.
std::vector<FramePackets> MakeFrames(const std::string& scene, int frames);

// The calibration of the sensor that took these frames.
simulator::CalibrationBlobs MakeCalibration();

}  // namespace kerul::lidar::bench
