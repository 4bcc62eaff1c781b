// Raw packets of version 7.11: 692 bytes, nine pixels each.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::simulator {

inline constexpr std::size_t kRawPacketBytes = 692;
inline constexpr std::size_t kPixelBlockBytes = 72;
inline constexpr int kPixelBlockSamples = 48;

using RawPacket = std::array<std::uint8_t, kRawPacketBytes>;

// 48 samples of 12 bits into 72 bytes: two samples share three bytes.
void PackPixelBlock(const std::array<std::uint16_t, kPixelBlockSamples>& samples,
                    std::uint8_t* bytes) noexcept;

// Writes frame id, timestamp and sequence numbers of a frame's packets: those of the sensor's frame
// `frame_number`, sent from time_s on.
void StampFrame(std::vector<RawPacket>& packets, std::uint32_t frame_number,
                double time_s) noexcept;

// The frame's 6912 packets in the order in which the sensor sends them. The frame id is the frame
// number modulo 256. The first packet's sequence number is the frame number times 6912, modulo
// 2^32. Both are those of a sensor that has run since frame 0.
std::vector<RawPacket> EncodeFrame(const SimulatedFrame& frame);

}  // namespace kerul::lidar::simulator
