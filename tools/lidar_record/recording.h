// The files of a recording: one after the other, each within its limits.
#pragma once

#include <cstdint>
#include <string>

#include "lidar_record/file_names.h"
#include "mcap/file_writer.h"

namespace kerul::lidar::record {

struct SplitLimits {
  std::uint64_t bytes = 0;  // 0 is none; a file has one chunk at least
  double seconds = 0.0;     // 0 is none
};

class Recording {
 public:
  Recording(FileNames names, mcap::FileDescription description, const SplitLimits& limits);

  // Writes a chunk, into a new file where one is due. After a failure the file in hand is cut back
  // to its last whole chunk and finished if there is room for its index; nothing may follow. The
  // reason is then in Error().
  bool Write(const mcap::Chunk& chunk);
  // Finishes the file in hand, if any. Write may follow, and begins the next file.
  bool Finish();

  // Of all files, as far as they were written.
  std::uint64_t Files() const noexcept { return files_; }
  std::uint64_t Bytes() const noexcept { return bytes_before_ + writer_.Size(); }
  std::uint64_t Messages() const noexcept { return messages_before_ + writer_.Messages(); }
  const std::string& Path() const noexcept { return path_; }  // of the file in hand or the last one
  // "cannot write FILE: reason; what was kept".
  const std::string& Error() const noexcept { return error_; }

 private:
  bool IsSplitDue(const mcap::Chunk& chunk) const;
  bool Begin();
  void KeepWhatIsWhole();

  FileNames names_;
  mcap::FileDescription description_;
  SplitLimits limits_;
  mcap::FileWriter writer_;
  std::string path_;
  std::uint64_t files_ = 0;
  std::uint64_t bytes_before_ = 0;  // of the files before the one in hand
  std::uint64_t messages_before_ = 0;
  std::string error_;
};

}  // namespace kerul::lidar::record
