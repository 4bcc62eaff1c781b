// Goes through a whole MCAP file and tells what is in it and what is damaged.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "mcap/file_walk.h"
#include "mcap/records.h"

namespace kerul::lidar::mcap {

struct Damage {
  std::uint64_t at = 0;  // of the record, from the start of the file
  std::string what;
};

struct PackedBytes {
  std::uint64_t chunks = 0;
  std::uint64_t stored = 0;
  std::uint64_t plain = 0;
};

struct Survey {
  Header header;
  std::map<std::uint16_t, Schema> schemas;                // by id
  std::map<std::uint16_t, Channel> channels;              // by id
  std::map<std::uint16_t, std::uint64_t> message_counts;  // by channel
  std::uint64_t messages = 0;
  std::uint64_t start_time_ns = 0;  // earliest and latest log time; 0 without a message
  std::uint64_t end_time_ns = 0;
  std::uint64_t file_bytes = 0;
  std::map<std::string, PackedBytes> chunks;  // the sound ones, by compression
  std::uint64_t sound_chunks = 0;
  std::uint64_t damaged_chunks = 0;
  std::vector<Damage> damages;        // the first 100
  std::uint64_t further_damages = 0;  // not listed
  bool finished = false;              // with footer and closing magic
  std::uint64_t unread_bytes = 0;     // after the last whole record of a file that is not finished
};

// False with the reason in `error` when the file does not begin as an MCAP file. Reads every byte
// and checks every CRC. Needs memory for what `limits` names.
bool MakeSurvey(ByteSource& source, const ReadLimits& limits, Survey& survey, std::string& error);

// Whether the file ends with a footer and the magic, as a whole one does.
bool IsFinished(ByteSource& source);

// Of a file that may not be finished: whether it is, and how many chunks stand in it whole. Reads
// only what the records begin with.
struct FileEnd {
  bool finished = false;
  std::uint64_t whole_chunks = 0;
};
bool FindFileEnd(ByteSource& source, FileEnd& end, std::string& error);

}  // namespace kerul::lidar::mcap
