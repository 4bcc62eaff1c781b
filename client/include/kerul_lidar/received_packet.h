// One packet as it came from the ring or from a socket.
#pragma once

#include <cstdint>

namespace kerul::lidar {

inline constexpr std::uint32_t kReceivedPacketRoom = 1500;  // bytes; a whole number of words

struct ReceivedPacket {
  std::uint32_t number;  // the ring's packet number; 0 from a socket
  std::uint16_t length;  // valid bytes; those after them are arbitrary
  std::uint8_t bytes[kReceivedPacketRoom];
};

}  // namespace kerul::lidar
