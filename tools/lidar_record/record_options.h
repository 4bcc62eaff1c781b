// What the program is to do.
#pragma once

#include <cstdint>
#include <string>

#include "mcap/compression.h"
#include "ros_messages/message_options.h"
#include "ros_messages/stream_options.h"

namespace kerul::lidar::record {

enum class Mode : std::uint8_t {
  kStream,    // from now on
  kLast,      // what the ring still holds
  kOnSignal,  // the last seconds, at each SIGUSR1
};

struct RecordOptions {
  ros::StreamOptions stream;
  ros::MessageOptions messages;
  std::string topic = "lidar/points";
  std::string out;  // path of the first file
  mcap::Compression compression = mcap::Compression::kZstd;
  Mode mode = Mode::kStream;
  double kept_seconds = 0.0;        // with kOnSignal
  std::uint64_t memory_mib = 1024;  // most that kOnSignal keeps, MiB
  std::uint64_t frames = 0;         // when to stop; 0 is never
  double seconds = 0.0;             // the same
  std::uint64_t split_bytes = 0;    // largest size of a file; 0 is none
  double split_seconds = 0.0;       // longest time in a file; 0 is none
  std::string raw_capture;          // whose datagrams are added; empty: none
};

struct ExtractOptions {
  std::string file;
  std::uint64_t frame = 0;  // number of the cloud in the file, from 0
  std::string topic;        // empty: the file's first channel of clouds
  std::string pcd;          // paths; empty: not written
  std::string ply;
  std::string las;
  std::string png;
};

enum class Command : std::uint8_t { kRecord, kInfo, kExtract };

struct CommandLine {
  Command command = Command::kRecord;
  RecordOptions record;
  std::string info_file;
  ExtractOptions extract;
};

// Fills in `line`. False when the program is to end now with `exit_status`: 0 after --help, 1 after
// an error, both already printed.
bool ParseCommandLine(int argc, const char* const* argv, CommandLine& line, int& exit_status);

}  // namespace kerul::lidar::record
