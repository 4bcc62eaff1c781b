#include "sensor_simulator/stream_faults.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace kerul::lidar::simulator {
namespace {

constexpr std::uint32_t kReorderReach = 16;
constexpr std::uint32_t kLongestForeign = 1472;  // one Ethernet frame
constexpr std::size_t kFrameIdOffset = 675;

}  // namespace

FaultInjector::FaultInjector(const FaultRates& rates, std::uint64_t seed)
    : rates_(rates), random_(MixSeed(seed, 0x6661756C74ULL)) {
  for (const double rate : {rates.loss, rates.duplicate, rates.reorder, rates.frame_jump,
                            rates.foreign, rates.other_version, rates.short_datagram}) {
    if (!(rate >= 0.0 && rate <= 1.0)) {
      throw std::invalid_argument("a fault rate must lie between 0 and 1");
    }
  }
}

// Another sender's datagram: never this protocol's first two bytes.
Datagram FaultInjector::ForeignDatagram() {
  Datagram datagram(1 + random_.Below(kLongestForeign));
  for (std::uint8_t& byte : datagram) byte = static_cast<std::uint8_t>(random_.Next() >> 56);
  if (datagram[0] == 0xEE) datagram[0] = 0x11;
  return datagram;
}

void FaultInjector::Append(RawPacket packet, std::vector<Datagram>& datagrams) {
  if (random_.Chance(rates_.foreign)) {
    datagrams.push_back(ForeignDatagram());
    ++counts_.foreign;
  }
  if (random_.Chance(rates_.loss)) {
    ++counts_.lost;
    return;
  }
  packet[kFrameIdOffset] = static_cast<std::uint8_t>(packet[kFrameIdOffset] + frame_id_offset_);
  if (random_.Chance(rates_.other_version)) {
    packet[3] = 10;
    ++counts_.other_version;
  }
  Datagram datagram(packet.begin(), packet.end());
  if (random_.Chance(rates_.short_datagram)) {
    datagram.resize(1 + random_.Below(static_cast<std::uint32_t>(kRawPacketBytes) - 1));
    ++counts_.shortened;
  }
  if (random_.Chance(rates_.duplicate)) {
    datagrams.push_back(datagram);
    ++counts_.duplicated;
  }
  datagrams.push_back(std::move(datagram));
}

std::vector<Datagram> FaultInjector::Apply(const std::vector<RawPacket>& packets) {
  if (random_.Chance(rates_.frame_jump)) {
    frame_id_offset_ = static_cast<std::uint8_t>(frame_id_offset_ + 1 + random_.Below(254));
    ++counts_.jumps;
  }
  std::vector<Datagram> datagrams;
  datagrams.reserve(packets.size());
  for (const RawPacket& packet : packets) Append(packet, datagrams);
  for (std::size_t i = 0; i + 1 < datagrams.size(); ++i) {
    if (!random_.Chance(rates_.reorder)) continue;
    const std::size_t other = i + 1 + random_.Below(kReorderReach);
    std::swap(datagrams[i], datagrams[std::min(other, datagrams.size() - 1)]);
    ++counts_.reordered;
  }
  return datagrams;
}

}  // namespace kerul::lidar::simulator
