// Packets that show their own faults, and the account of a reader that checks them.
//
// A packet is a run of 32-bit words: its number, its generation (which writer), the flag of a
// generation's last packet, then words that follow from number and position. Any mixture of two
// packets breaks the run; its length follows from the number too.
#pragma once

#include <cstdint>
#include <cstring>

#include "kerul_lidar/received_packet.h"

namespace kerul::lidar {

struct LoadPacket {
  std::uint16_t length = 0;
  std::uint8_t bytes[kReceivedPacketRoom] = {};
};

inline std::uint32_t LoadWordOf(std::uint32_t number, std::uint32_t generation,
                                std::uint32_t position) {
  return (number + generation * 0x85EBCA6BU) * 0x9E3779B1U + position * 0xC2B2AE35U;
}

// 12 bytes at least; mostly about the size of a point packet, now and then the longest.
inline std::uint16_t LoadLengthOf(std::uint32_t number) {
  if (number % 61 == 0) return 1500;
  return static_cast<std::uint16_t>(12 + (number * 7) % 250);
}

inline void FillLoadPacket(std::uint32_t number, std::uint32_t generation, bool last,
                           LoadPacket& packet) {
  packet.length = LoadLengthOf(number);
  const std::uint32_t head[3] = {number, generation, last ? 1U : 0U};
  std::memcpy(packet.bytes, head, sizeof head);
  for (std::uint32_t i = 12; i + 4 <= packet.length; i += 4) {
    const std::uint32_t word = LoadWordOf(number, generation, i);
    std::memcpy(packet.bytes + i, &word, 4);
  }
  for (std::uint32_t i = packet.length & ~3U; i < packet.length; ++i) {
    packet.bytes[i] = static_cast<std::uint8_t>(number + i);
  }
}

struct LoadHead {
  std::uint32_t number;
  std::uint32_t generation;
  std::uint32_t last;
};

inline LoadHead HeadOf(const ReceivedPacket& packet) {
  LoadHead head{};
  std::memcpy(&head, packet.bytes, sizeof head);
  return head;
}

// Whether the packet is exactly the one that its number names.
inline bool IsWhole(const ReceivedPacket& packet) {
  const LoadHead head = HeadOf(packet);
  LoadPacket expected;
  if (head.number != packet.number || packet.length != LoadLengthOf(packet.number)) return false;
  FillLoadPacket(head.number, head.generation, head.last != 0, expected);
  return std::memcmp(expected.bytes, packet.bytes, packet.length) == 0;
}

// What one reader saw of one stream of numbers that begins at 1.
struct LoadAccount {
  std::uint64_t accepted = 0;
  std::uint64_t skipped = 0;    // numbers between accepted packets, counted by the test
  std::uint64_t wrong = 0;      // not whole
  std::uint64_t backwards = 0;  // not above the number before
  std::uint32_t last_number = 0;
  bool saw_last = false;

  void Take(const ReceivedPacket& packet) {
    ++accepted;
    wrong += !IsWhole(packet);
    backwards += packet.number <= last_number;
    skipped += packet.number - last_number - 1;
    last_number = packet.number;
    saw_last = HeadOf(packet).last != 0;
  }
};

}  // namespace kerul::lidar
