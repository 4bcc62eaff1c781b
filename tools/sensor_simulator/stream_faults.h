// What can go wrong between sensor and receiver, on request and repeatable.
#pragma once

#include <cstdint>
#include <vector>

#include "sensor_simulator/random.h"
#include "sensor_simulator/raw_packet.h"

namespace kerul::lidar::simulator {

using Datagram = std::vector<std::uint8_t>;

// Each is a probability, 0 to 1.
struct FaultRates {
  double loss = 0.0;            // per packet: not sent
  double duplicate = 0.0;       // per packet: sent twice in a row
  double reorder = 0.0;         // per packet: changes places with one of the next 16
  double frame_jump = 0.0;      // per frame: the frame id jumps by 2 to 255 from here on
  double foreign = 0.0;         // per packet: another sender's datagram arrives before it
  double other_version = 0.0;   // per packet: arrives as version 7.10
  double short_datagram = 0.0;  // per packet: cut to 1 to 691 bytes
};

struct FaultCounts {
  std::uint64_t lost = 0;
  std::uint64_t duplicated = 0;
  std::uint64_t reordered = 0;
  std::uint64_t jumps = 0;
  std::uint64_t foreign = 0;
  std::uint64_t other_version = 0;
  std::uint64_t shortened = 0;
};

// Holds the position in the random sequence and the frame id's offset; takes frames in order.
class FaultInjector {
 public:
  // Throws std::invalid_argument when a rate lies outside 0..1.
  FaultInjector(const FaultRates& rates, std::uint64_t seed);

  std::vector<Datagram> Apply(const std::vector<RawPacket>& packets);
  const FaultCounts& counts() const noexcept { return counts_; }

 private:
  void Append(RawPacket packet, std::vector<Datagram>& datagrams);
  Datagram ForeignDatagram();

  FaultRates rates_;
  Random random_;
  FaultCounts counts_;
  std::uint8_t frame_id_offset_ = 0;
};

}  // namespace kerul::lidar::simulator
