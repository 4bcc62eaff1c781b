#include "pixel_story/capture_records.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "source/capture_format.h"

namespace kerul::lidar::story {
namespace {

constexpr std::uint32_t kMagic = 0xA1B2C3D4;
constexpr std::uint32_t kLongestFrame = 262144;  // what tcpdump keeps of a frame at most
constexpr std::size_t kBlockBytes = 1 << 20;
// The search by halves ends at a stretch that is read faster than it is searched.
constexpr std::uint64_t kNearBytes = 4 * kBlockBytes;
// Bytes taken for a record are one when so many follow each other.
constexpr int kSureRecords = 8;

struct RecordHeader {
  std::uint32_t seconds;
  std::uint32_t microseconds;
  std::uint32_t kept_bytes;
  std::uint32_t frame_bytes;

  std::int64_t TimeUs() const noexcept { return std::int64_t{seconds} * 1'000'000 + microseconds; }
  bool IsPossible() const noexcept {
    return microseconds < 1'000'000 && kept_bytes > 0 && kept_bytes <= kLongestFrame &&
           kept_bytes <= frame_bytes;
  }
};

// Nothing at the end of the bytes.
std::optional<RecordHeader> HeaderAt(std::span<const std::uint8_t> bytes, std::size_t at) {
  RecordHeader header;
  if (at > bytes.size() || bytes.size() - at < sizeof header) return std::nullopt;
  std::memcpy(&header, bytes.data() + at, sizeof header);
  return header;
}

bool RecordsBeginAt(std::span<const std::uint8_t> bytes, std::size_t at, std::uint32_t earliest_s) {
  for (int i = 0; i < kSureRecords; ++i) {
    const std::optional<RecordHeader> header = HeaderAt(bytes, at);
    if (!header || !header->IsPossible() || header->seconds < earliest_s) return false;
    at += sizeof(RecordHeader) + header->kept_bytes;
  }
  return true;
}

}  // namespace

std::optional<CaptureRecords> CaptureRecords::Open(const std::string& path) {
  // A FIFO of that name must not hold anybody up.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  CaptureRecords capture(fd);
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  capture.size_ = static_cast<std::uint64_t>(status.st_size);
  const std::vector<std::uint8_t> begin =
      capture.BytesAt(0, kGlobalHeaderBytes + sizeof(RecordHeader));
  const std::optional<RecordHeader> first = HeaderAt(begin, kGlobalHeaderBytes);
  if (!first || !first->IsPossible()) return std::nullopt;
  std::uint32_t magic = 0;
  std::memcpy(&magic, begin.data(), sizeof magic);
  if (magic != kMagic || !CaptureFormatNote(begin).empty()) return std::nullopt;
  std::copy_n(begin.begin(), kGlobalHeaderBytes, capture.header_.begin());
  capture.first_time_us_ = first->TimeUs();
  return capture;
}

// Shorter at the end of the file, and where it has been cut since.
std::vector<std::uint8_t> CaptureRecords::BytesAt(std::uint64_t offset, std::size_t most) const {
  std::vector<std::uint8_t> bytes(
      static_cast<std::size_t>(std::min<std::uint64_t>(most, size_ - std::min(size_, offset))));
  std::size_t read = 0;
  while (read < bytes.size()) {
    const ssize_t got = pread(file_.Fd(), bytes.data() + read, bytes.size() - read,
                              static_cast<off_t>(offset + read));
    if (got == 0 || (got < 0 && errno != EINTR)) break;
    if (got > 0) read += static_cast<std::size_t>(got);
  }
  bytes.resize(read);
  return bytes;
}

// Where the next record begins is not marked: tried is each byte.
std::optional<CaptureRecords::Place> CaptureRecords::RecordAfter(std::uint64_t offset) const {
  const std::vector<std::uint8_t> bytes = BytesAt(offset, kBlockBytes);
  const auto earliest_s = static_cast<std::uint32_t>(first_time_us_ / 1'000'000);
  const std::size_t end = std::min<std::size_t>(bytes.size(), kLongestFrame);
  for (std::size_t at = 0; at < end; ++at) {
    if (RecordsBeginAt(bytes, at, earliest_s)) {
      return Place{offset + at, HeaderAt(bytes, at)->TimeUs()};
    }
  }
  return std::nullopt;
}

// A record at or before the first one of this time or later.
std::uint64_t CaptureRecords::OffsetBefore(std::int64_t time_us) const {
  std::uint64_t low = kGlobalHeaderBytes;
  std::uint64_t high = size_;
  while (high > low + kNearBytes) {
    const std::uint64_t middle = low + (high - low) / 2;
    const std::optional<Place> place = RecordAfter(middle);
    if (place && place->time_us < time_us) {
      low = place->offset;
    } else {
      high = middle;
    }
  }
  return low;
}

void CaptureRecords::Read(const TimeSpan& time, const Sink& sink) const {
  std::uint64_t offset = OffsetBefore(time.begin_us);
  for (;;) {
    const std::vector<std::uint8_t> bytes = BytesAt(offset, kBlockBytes);
    std::size_t begin = 0;  // of the records to hand out
    std::size_t at = 0;
    bool is_over = false;
    while (const std::optional<RecordHeader> header = HeaderAt(bytes, at)) {
      is_over = !header->IsPossible() || header->TimeUs() >= time.end_us;
      const std::size_t next = at + sizeof(RecordHeader) + header->kept_bytes;
      if (is_over || next > bytes.size()) break;
      at = next;
      if (header->TimeUs() < time.begin_us) begin = at;
    }
    if (at > begin) sink(std::span(bytes).subspan(begin, at - begin));
    if (is_over || at == 0) return;
    offset += at;
  }
}

}  // namespace kerul::lidar::story
