// A piece of what a capture holds, as a capture of its own in memory.
#pragma once

#include <span>
#include <string>

#include "pixel_story/capture_records.h"
#include "support/open_file.h"

namespace kerul::lidar::story {

class CaptureCut {
 public:
  static constexpr std::size_t kMostBytes = 160U << 20;  // held twice while it is read

  // Cuts this time out of the file `path`, or out of the captures in the folder `path`, which
  // follow each other as a rotating recorder writes them. Other files in the folder are passed
  // over. Throws FrameNotFound when there is no capture or the piece is longer than kMostBytes.
  CaptureCut(const std::string& path, const TimeSpan& time);

  // Where the piece can be opened as a file, as long as this object lives.
  std::string Path() const;
  bool IsEmpty() const noexcept { return bytes_ <= CaptureRecords::kGlobalHeaderBytes; }

 private:
  void Take(const std::string& path, const TimeSpan& time);
  void Write(std::span<const std::uint8_t> bytes);

  OpenFile file_;
  std::size_t bytes_ = 0;  // of the file
};

}  // namespace kerul::lidar::story
