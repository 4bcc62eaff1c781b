#include "lidar_web/node_log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

namespace kerul::lidar::web {
namespace {

constexpr std::uint64_t kPacketsOfFrame = 6912;
constexpr std::size_t kLongestLine = 1000;
constexpr int kMostPieces = 256;  // of 4 KiB in one look
// Larger counts would let the sums overflow; no node prints them.
constexpr std::uint64_t kMostCount = 1'000'000'000;

// The number that stands before `text` in `line`.
std::optional<std::uint64_t> NumberBefore(std::string_view line, std::string_view text) {
  const std::size_t end = line.find(text);
  if (end == std::string_view::npos) return std::nullopt;
  std::size_t begin = end;
  while (begin > 0 && line[begin - 1] >= '0' && line[begin - 1] <= '9') --begin;
  std::uint64_t value = 0;
  const auto [stop, error] = std::from_chars(line.data() + begin, line.data() + end, value);
  if (error != std::errc{} || begin == end || value > kMostCount) return std::nullopt;
  return value;
}

}  // namespace

std::optional<RawLoss> ReadLossLine(std::string_view line) {
  constexpr std::string_view kBegin = "raw packets lost in ";
  // A service manager may have put a date before it.
  const std::size_t begin = line.find(kBegin);
  if (begin == std::string_view::npos) return std::nullopt;
  line.remove_prefix(begin);
  const std::size_t without = line.find(" closed without ");
  if (without == std::string_view::npos) return std::nullopt;
  const auto packets = NumberBefore(line.substr(without), " packets");
  const auto frames = NumberBefore(line, " frame ids never came");
  const auto dropped = NumberBefore(line, " datagrams dropped by the kernel");
  if (!packets || !frames || !dropped) return std::nullopt;
  return RawLoss{*packets, *frames, *dropped};
}

void LossTotals::Take(std::string_view piece) {
  while (!piece.empty()) {
    const std::size_t end = std::min(piece.find('\n'), piece.size());
    too_long_ = too_long_ || line_.size() + end > kLongestLine;
    if (!too_long_) line_ += piece.substr(0, end);
    if (end < piece.size()) {
      if (!too_long_) TakeLine(line_);
      line_.clear();
      too_long_ = false;
    }
    piece.remove_prefix(std::min(end + 1, piece.size()));
  }
}

// The kernel drops a packet before the node misses it, so that the difference tells no packet too
// many, but may lag.
void LossTotals::TakeLine(std::string_view line) {
  const std::optional<RawLoss> loss = ReadLossLine(line);
  if (!loss) return;
  lost_ += loss->missing_packets + loss->missing_frames * kPacketsOfFrame;
  dropped_ += loss->kernel_dropped;
  if (lost_ > dropped_) before_host_ = std::max(before_host_, of_nodes_before_ + lost_ - dropped_);
}

void LossTotals::Restart() {
  line_.clear();
  too_long_ = false;
  lost_ = dropped_ = 0;
  of_nodes_before_ = before_host_;
}

NodeLog::~NodeLog() {
  if (fd_ > STDIN_FILENO) close(fd_);
}

bool NodeLog::Open() {
  if (path_ == "-") {
    fd_ = STDIN_FILENO;
  } else {
    // A FIFO without a writer would hold an ordinary open for ever.
    fd_ = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  return fd_ >= 0;
}

bool NodeLog::IsStillTheFile() const {
  struct stat opened {};
  struct stat named {};
  if (fd_ == STDIN_FILENO) return true;
  if (fstat(fd_, &opened) != 0) return false;
  if (stat(path_.c_str(), &named) != 0) return true;  // its rest is still read
  const bool same = opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
  return same && (!S_ISREG(opened.st_mode) || lseek(fd_, 0, SEEK_CUR) <= opened.st_size);
}

void NodeLog::Look() {
  if (fd_ >= 0 && !IsStillTheFile()) {
    close(fd_);
    fd_ = -1;
    totals_.Restart();
  }
  if (fd_ < 0 && !Open()) return;
  seen_ = true;
  char piece[4096];
  for (int i = 0; i < kMostPieces; ++i) {
    pollfd readable{.fd = fd_, .events = POLLIN, .revents = 0};
    if (poll(&readable, 1, 0) <= 0 || (readable.revents & POLLIN) == 0) return;
    const ssize_t size = read(fd_, piece, sizeof piece);
    if (size <= 0) return;
    totals_.Take({piece, static_cast<std::size_t>(size)});
  }
}

std::optional<std::uint64_t> NodeLog::BeforeHost() const {
  return seen_ ? std::optional(totals_.BeforeHost()) : std::nullopt;
}

}  // namespace kerul::lidar::web
