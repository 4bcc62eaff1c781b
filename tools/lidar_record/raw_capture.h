// The raw datagrams of a capture file as messages of a recording.
#pragma once

#include <cstdint>
#include <string>

#include "lidar_record/recording.h"
#include "mcap/chunk.h"

namespace kerul::lidar::record {

// Adds what the node would take of the capture: UDP datagrams of 11 bytes or more that begin with
// EE FF. A chunk holds those of one frame of the sensor. Stamps are those of the capture. False
// with the reason in `error` when the capture cannot be read or the recording cannot be written;
// `count` is what was added.
bool AddRawCapture(const std::string& path, mcap::ChunkBuilder& builder, Recording& recording,
                   std::uint64_t& count, std::string& error);

}  // namespace kerul::lidar::record
