// The records of a capture file that may be large, may still grow and may be cut at its end.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "support/open_file.h"

namespace kerul::lidar::story {

// A piece of time, microseconds since 1970.
struct TimeSpan {
  std::int64_t begin_us = 0;
  std::int64_t end_us = 0;  // not included
};

class CaptureRecords {
 public:
  static constexpr std::size_t kGlobalHeaderBytes = 24;

  // Nothing for what is no regular file, cannot be read, has no record, or is not what the node
  // reads: a little-endian classic capture of Ethernet frames with microseconds.
  static std::optional<CaptureRecords> Open(const std::string& path);

  std::int64_t FirstTimeUs() const noexcept { return first_time_us_; }
  const std::array<std::uint8_t, kGlobalHeaderBytes>& GlobalHeader() const noexcept {
    return header_;
  }

  // Hands out the whole records of this time, several at once, with their headers. The file is
  // searched by halves, and ends where it ended when it was opened.
  using Sink = std::function<void(std::span<const std::uint8_t> records)>;
  void Read(const TimeSpan& time, const Sink& sink) const;

 private:
  struct Place {
    std::uint64_t offset;
    std::int64_t time_us;
  };

  explicit CaptureRecords(int fd) : file_(fd) {}
  std::vector<std::uint8_t> BytesAt(std::uint64_t offset, std::size_t most) const;
  std::optional<Place> RecordAfter(std::uint64_t offset) const;
  std::uint64_t OffsetBefore(std::int64_t time_us) const;

  OpenFile file_;
  std::uint64_t size_ = 0;
  std::array<std::uint8_t, kGlobalHeaderBytes> header_{};
  std::int64_t first_time_us_ = 0;
};

}  // namespace kerul::lidar::story
