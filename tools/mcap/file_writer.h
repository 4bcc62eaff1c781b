// Writes an MCAP file, chunk by chunk, so that each chunk that was written whole can be read,
// whatever happens next.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "mcap/chunk.h"
#include "mcap/records.h"

namespace kerul::lidar::mcap {

// What a file begins with: every schema and channel stands before the first chunk, so that no
// broken chunk can take them along.
struct FileDescription {
  Header header;
  std::vector<Schema> schemas;
  std::vector<Channel> channels;
};

class FileWriter {
 public:
  FileWriter() = default;
  ~FileWriter();  // leaves an open file as it is, not finished
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;

  // Makes a new file, locks it (flock) while it is open, and writes its beginning. False with
  // errno's text in Error(), "File exists" for a name that is taken; no file is left then.
  bool Create(const std::string& path, const FileDescription& description);
  // Writes a chunk with one call. After a failure the file is cut back to the last whole chunk, and
  // nothing but Finish may follow.
  bool Write(const Chunk& chunk);
  // Writes index and statistics and closes the file. When that fails, the file is cut back to its
  // last whole chunk. A file without Finish still gives every chunk to a reader that goes through
  // it from the front.
  bool Finish();

  bool IsOpen() const noexcept { return fd_ >= 0; }
  std::uint64_t Size() const noexcept { return size_; }  // bytes that stand in the file
  // At most so many once `next` is written, too, and the file is finished.
  std::uint64_t FinishedSize(const Chunk& next) const noexcept;
  std::uint64_t Chunks() const noexcept { return statistics_.chunk_count; }
  std::uint64_t Messages() const noexcept { return statistics_.message_count; }
  std::uint64_t StartTimeNs() const noexcept { return statistics_.start_time_ns; }
  std::uint64_t EndTimeNs() const noexcept { return statistics_.end_time_ns; }
  const std::string& Error() const noexcept { return error_; }

 private:
  bool Put(std::span<const std::uint8_t> bytes);
  void Count(const Chunk& chunk);
  Bytes Summary() const;
  void Close();

  int fd_ = -1;
  std::uint64_t size_ = 0;
  std::uint32_t crc_ = 0;  // of the bytes that stand in the file
  FileDescription description_;
  Statistics statistics_;
  Bytes chunk_indexes_;                   // the records
  std::uint64_t summary_room_bytes_ = 0;  // what a summary needs beside them
  std::string error_;
};

}  // namespace kerul::lidar::mcap
