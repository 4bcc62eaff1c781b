// Records as the bytes of an MCAP file.
#pragma once

#include <cstdint>
#include <span>

#include "mcap/records.h"

namespace kerul::lidar::mcap {

// Appends the whole record, opcode and length included; for all but messages and chunks. A string,
// array or map must be shorter than 4 GiB.
template <class Record>
void Append(const Record& record, Bytes& out);
void Append(const MessageHeader& record, std::span<const std::uint8_t> data, Bytes& out);
// The record's head alone, with the length of the whole: `stored_size` bytes must follow.
void AppendHead(const ChunkHeader& record, Bytes& out);

// The CRC-32 of Ethernet and zlib, going on from `crc`; 0 begins.
std::uint32_t Crc32(std::uint32_t crc, std::span<const std::uint8_t> bytes) noexcept;

}  // namespace kerul::lidar::mcap
