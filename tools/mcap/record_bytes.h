// Records as the bytes of an MCAP file.
#pragma once

#include <cstdint>
#include <span>

#include "mcap/records.h"

namespace kerul::lidar::mcap {

// Each appends the whole record, opcode and length included. A string, array or map must be shorter
// than 4 GiB.
void Append(const Header& record, Bytes& out);
void Append(const Footer& record, Bytes& out);
void Append(const Schema& record, Bytes& out);
void Append(const Channel& record, Bytes& out);
void Append(const MessageHeader& record, std::span<const std::uint8_t> data, Bytes& out);
// The record's head alone, with the length of the whole: `stored_size` bytes must follow.
void Append(const ChunkHeader& record, Bytes& out);
void Append(const MessageIndex& record, Bytes& out);
void Append(const ChunkIndex& record, Bytes& out);
void Append(const Statistics& record, Bytes& out);
void Append(const SummaryOffset& record, Bytes& out);
void AppendDataEnd(std::uint32_t data_crc, Bytes& out);

// The CRC-32 of Ethernet and zlib, going on from `crc`; 0 begins.
std::uint32_t Crc32(std::uint32_t crc, std::span<const std::uint8_t> bytes) noexcept;

}  // namespace kerul::lidar::mcap
