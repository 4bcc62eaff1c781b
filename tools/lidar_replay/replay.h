// A capture file through the real node in this process, once, without a ring for others.
#pragma once

#include <functional>
#include <string>

#include "kerul_lidar/received_packet.h"

namespace kerul::lidar::replay {

// Plays `capture` through a node with the product's settings and the calibration in `cali_path`, as
// for the node's --cali_path. Hands every point packet to `take`, in the order and with the bytes
// that a node publishes that got the same datagrams without loss, except for the times when the
// packets were built. Returns false as soon as `take` does. Throws std::runtime_error when capture
// or calibration cannot be used.
bool Replay(const std::string& capture, const std::string& cali_path,
            const std::function<bool(const ReceivedPacket&)>& take);

}  // namespace kerul::lidar::replay
