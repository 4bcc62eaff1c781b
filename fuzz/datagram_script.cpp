#include "datagram_script.h"

#include <algorithm>
#include <cstring>

#include "MIPI_reader/parser/raw_packet.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::fuzz {
namespace {

constexpr int kStepKinds = 9;
constexpr int kPlacesPerSlot = 48;
constexpr int kSubpackets = 8;
constexpr int kRuns = 6;
constexpr int kPixelsPerRun = 72;
constexpr unsigned kAnyPlace = 0xF0;  // the upper four bits that leave a place unchanged
constexpr int kMaxSteps = 4000;

std::uint8_t* Block(UdpPacket& packet, int block) {
  return packet.buffer + raw_packet::kBlocksOffset + raw_packet::kBlockBytes * block;
}

// 12-bit sample `number` of a pixel block.
void PutSample(std::uint8_t* block, int number, unsigned value) {
  std::uint8_t* three = block + 3 * (number / 2);
  const int odd = number % 2;
  const int shift = 4 * odd;
  three[odd] = static_cast<std::uint8_t>(value >> 4);
  three[2] = static_cast<std::uint8_t>((three[2] & (0xF0 >> shift)) | ((value & 0xFU) << shift));
}

// A small generator, so that an input gives the same stream everywhere.
struct Lcg {
  std::uint32_t state;
  unsigned Below(unsigned limit) {
    state = state * 1664525U + 1013904223U;
    return (state >> 8) % limit;
  }
};

}  // namespace

DatagramScript::DatagramScript(ByteInput input, const ScriptLimits& limits)
    : input_(input), limits_(limits), template_(testing::MakeRawPacket(1, 0)) {}

ScriptEvent DatagramScript::Next() {
  for (int step = 0; step < kMaxSteps; ++step) {
    if (sent_ >= limits_.datagrams) return ScriptEvent::kEnd;
    if (to_send_ > 0) {
      --to_send_;
      NextPlace();
      const ScriptEvent event = Send(testing::kRawPacketBytes);
      if (event != ScriptEvent::kEnd) return event;
      continue;
    }
    if (input_.Empty()) return ScriptEvent::kEnd;
    const ScriptEvent event = Step();
    if (event != ScriptEvent::kEnd) return event;
  }
  return ScriptEvent::kEnd;
}

// kEnd: nothing to tell.
ScriptEvent DatagramScript::Step() {
  switch (input_.Byte() % kStepKinds) {
    case 0: {
      const auto bytes = input_.Take(input_.Word() % (kMaxDatagramBytes + 1));
      datagram_.assign(bytes.begin(), bytes.end());
      if (datagram_.empty() || !MakeHarmless()) return ScriptEvent::kEnd;
      ++sent_;
      return ScriptEvent::kDatagram;
    }
    case 1: {
      const std::size_t offset = input_.Word() % testing::kRawPacketBytes;
      const auto bytes = input_.Take(std::min<std::size_t>(
          input_.Byte(), static_cast<std::size_t>(testing::kRawPacketBytes) - offset));
      std::copy(bytes.begin(), bytes.end(), template_.buffer + offset);
      return ScriptEvent::kEnd;
    }
    case 2: {
      const unsigned group = input_.Byte();
      const unsigned slot = input_.Byte();
      Place(group, slot, input_.Byte());
      return Send(testing::kRawPacketBytes);
    }
    case 3:
      to_send_ = input_.Word() % 8192;
      return ScriptEvent::kEnd;
    case 4: {
      const unsigned which = input_.Byte();
      const unsigned address = input_.Word();
      const unsigned height = input_.Word();
      PutPulse(static_cast<int>(which / 2 % 9), static_cast<int>(which % 2), address, height,
               input_.Word());
      return ScriptEvent::kEnd;
    }
    case 5:
      PutRandomPulses(input_.Word());
      return ScriptEvent::kEnd;
    case 6:
      template_.buffer[raw_packet::kFrameIdOffset] = input_.Byte();
      return ScriptEvent::kEnd;
    case 7:
      return Send(input_.Byte() * 3U % testing::kRawPacketBytes);
    default:
      row_ = input_.Byte() % limits_.rows;
      return ScriptEvent::kRow;
  }
}

ScriptEvent DatagramScript::Send(std::size_t length) {
  datagram_.assign(template_.buffer, template_.buffer + length);
  if (datagram_.empty() || !MakeHarmless()) return ScriptEvent::kEnd;
  ++sent_;
  return ScriptEvent::kDatagram;
}

void DatagramScript::Place(unsigned group, unsigned slot, unsigned place) {
  const auto rows = static_cast<unsigned>(limits_.rows);
  const auto slots = static_cast<unsigned>(limits_.slots);
  template_.buffer[raw_packet::kGroupIdOffset] =
      static_cast<std::uint8_t>(group >= kAnyPlace ? group : group % rows);
  template_.buffer[raw_packet::kSlotIdOffset] =
      static_cast<std::uint8_t>(slot >= kAnyPlace ? slot : slot % slots);
  template_.buffer[raw_packet::kSubpacketIdOffset] =
      static_cast<std::uint8_t>(place >= kAnyPlace ? place : place % kSubpackets);
  const unsigned first = place / kSubpackets % kRuns * kPixelsPerRun + place % kSubpackets * 9;
  for (int block = 0; block < raw_packet::kBlocks; ++block) {
    PutSample(Block(template_, block), raw_packet::kPixelIdSample,
              first + static_cast<unsigned>(block));
  }
}

// The order in which the sensor sends: subpackets, runs, slots, rows.
void DatagramScript::NextPlace() {
  const UdpPacket& packet = template_;
  const unsigned pixel = unsigned{packet.buffer[raw_packet::kBlocksOffset + 4]} << 4 |
                         unsigned{packet.buffer[raw_packet::kBlocksOffset + 5]} >> 4;
  unsigned place = pixel / kPixelsPerRun * kSubpackets + pixel % kPixelsPerRun / 9 + 1;
  unsigned slot = packet.buffer[raw_packet::kSlotIdOffset];
  unsigned group = packet.buffer[raw_packet::kGroupIdOffset];
  slot += place / kPlacesPerSlot;
  place %= kPlacesPerSlot;
  group += slot / static_cast<unsigned>(limits_.slots);
  Place(group % static_cast<unsigned>(limits_.rows), slot % static_cast<unsigned>(limits_.slots),
        place);
}

void DatagramScript::PutPulse(int block, int echo, unsigned address, unsigned height,
                              unsigned floor) {
  constexpr int kFirstWindow = 10;
  constexpr int kWindowDistance = 19;
  constexpr unsigned kShape[] = {0, 0, 0, 0, 1, 4, 9, 14, 16, 14, 9, 4, 1, 0, 0, 0, 0};
  std::uint8_t* bytes = Block(template_, block);
  PutSample(bytes, raw_packet::kPeakAddrSample + echo, address % 4096);
  for (int i = 0; i < kWindowSamples; ++i) {
    const unsigned level = floor % 4096 + height % 4096 * kShape[i] / 16;
    PutSample(bytes, kFirstWindow + kWindowDistance * echo + i, std::min(level, 4095U));
  }
}

void DatagramScript::PutRandomPulses(unsigned seed) {
  Lcg random{seed};
  const unsigned address = random.Below(980);
  const unsigned height = 1U << random.Below(13);
  const unsigned spread = random.Below(20) + 1;
  for (int block = 0; block < raw_packet::kBlocks; ++block) {
    PutSample(Block(template_, block), raw_packet::kNoiseSample, random.Below(2));
    PutSample(Block(template_, block), raw_packet::kNoiseSample + 1, random.Below(4096));
    for (int echo = 0; echo < kEchoSlots; ++echo) {
      const bool empty = random.Below(6) == 0;
      PutPulse(block, echo, empty ? 2000 : address + random.Below(spread),
               height + random.Below(spread * 8), random.Below(spread * 4));
    }
  }
}

// A datagram is parsed together with what an earlier one left past its end.
bool DatagramScript::MakeHarmless() {
  constexpr std::uint8_t kStart[] = {0xEE, 0xFF, 7, 11};
  constexpr std::size_t kChannels = raw_packet::kChannelCountOffset;
  UdpPacket parsed = received_;
  std::copy(datagram_.begin(), datagram_.end(), parsed.buffer);
  if (std::memcmp(parsed.buffer, kStart, sizeof(kStart)) == 0 &&
      parsed.buffer[kChannels] != raw_packet::kBlocks) {
    if (datagram_.size() <= kChannels) return false;
    datagram_[kChannels] = raw_packet::kBlocks;
    parsed.buffer[kChannels] = raw_packet::kBlocks;
  }
  received_ = parsed;
  return true;
}

}  // namespace kerul::lidar::fuzz
