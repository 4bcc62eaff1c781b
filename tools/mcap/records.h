// The records of an MCAP file: what stands in them, in the order in which it stands there.
//
// A file is the magic, a header, the data section, the summary section, a footer and the magic
// again. A record is its opcode (1 byte), the length of its content (8 bytes) and the content.
// Integers are little-endian; a string is its length (4 bytes) and its bytes; an array or map is
// the length of all its entries (4 bytes) and the entries.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kerul::lidar::mcap {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::array<std::uint8_t, 8> kMagic{0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};
inline constexpr std::size_t kRecordHeaderBytes = 9;

enum class Opcode : std::uint8_t {
  kHeader = 0x01,
  kFooter = 0x02,
  kSchema = 0x03,
  kChannel = 0x04,
  kMessage = 0x05,
  kChunk = 0x06,
  kMessageIndex = 0x07,
  kChunkIndex = 0x08,
  kStatistics = 0x0B,
  kSummaryOffset = 0x0E,
  kDataEnd = 0x0F,
};

struct Header {
  static constexpr Opcode kOpcode = Opcode::kHeader;
  std::string profile;  // "ros2"
  std::string library;  // what wrote the file
};

struct Footer {
  static constexpr Opcode kOpcode = Opcode::kFooter;
  std::uint64_t summary_start = 0;  // 0: there is no summary
  std::uint64_t summary_offset_start = 0;
  std::uint32_t summary_crc = 0;  // from the summary's start up to this field; 0 is not known
};
inline constexpr std::size_t kFooterBytes = 20;

struct Schema {
  static constexpr Opcode kOpcode = Opcode::kSchema;
  std::uint16_t id = 0;  // not 0
  std::string name;
  std::string encoding;
  std::string data;
};

struct Channel {
  static constexpr Opcode kOpcode = Opcode::kChannel;
  std::uint16_t id = 0;
  std::uint16_t schema_id = 0;  // 0: without a schema
  std::string topic;
  std::string message_encoding;
  std::vector<std::pair<std::string, std::string>> metadata;
};

// What a message begins with; the rest of the record is its data. Times are nanoseconds since the
// epoch.
struct MessageHeader {
  static constexpr Opcode kOpcode = Opcode::kMessage;
  std::uint16_t channel_id = 0;
  std::uint32_t sequence = 0;
  std::uint64_t log_time_ns = 0;
  std::uint64_t publish_time_ns = 0;
};
inline constexpr std::size_t kMessageHeaderBytes = 22;

// What a chunk begins with; the rest is `stored_size` bytes of records, compressed or not.
struct ChunkHeader {
  static constexpr Opcode kOpcode = Opcode::kChunk;
  std::uint64_t start_time_ns = 0;  // earliest and latest log time of its messages
  std::uint64_t end_time_ns = 0;
  std::uint64_t plain_size = 0;
  std::uint32_t plain_crc = 0;  // 0 is not known
  std::string compression;      // "", "lz4" or "zstd"
  std::uint64_t stored_size = 0;
};

struct MessageIndex {
  static constexpr Opcode kOpcode = Opcode::kMessageIndex;
  std::uint16_t channel_id = 0;
  // Log time, and place of the message's record in the chunk's plain bytes.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> entries;
};

struct ChunkIndex {
  static constexpr Opcode kOpcode = Opcode::kChunkIndex;
  std::uint64_t start_time_ns = 0;
  std::uint64_t end_time_ns = 0;
  std::uint64_t chunk_start = 0;   // of the chunk's record, from the start of the file
  std::uint64_t chunk_length = 0;  // of the whole record
  std::map<std::uint16_t, std::uint64_t> message_index_offsets;  // by channel, in the file
  std::uint64_t message_index_length = 0;                        // of all these records
  std::string compression;
  std::uint64_t stored_size = 0;
  std::uint64_t plain_size = 0;
};

struct Statistics {
  static constexpr Opcode kOpcode = Opcode::kStatistics;
  std::uint64_t message_count = 0;
  std::uint16_t schema_count = 0;
  std::uint32_t channel_count = 0;
  std::uint32_t attachment_count = 0;
  std::uint32_t metadata_count = 0;
  std::uint32_t chunk_count = 0;
  std::uint64_t start_time_ns = 0;
  std::uint64_t end_time_ns = 0;
  std::map<std::uint16_t, std::uint64_t> channel_message_counts;
};

struct DataEnd {
  static constexpr Opcode kOpcode = Opcode::kDataEnd;
  std::uint32_t data_crc = 0;  // of all before this record; 0 is not known
};

// Where the summary's records of one kind stand.
struct SummaryOffset {
  static constexpr Opcode kOpcode = Opcode::kSummaryOffset;
  Opcode opcode = Opcode::kSchema;
  std::uint64_t start = 0;
  std::uint64_t length = 0;
};

}  // namespace kerul::lidar::mcap
