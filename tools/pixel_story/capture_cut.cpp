#include "pixel_story/capture_cut.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "pixel_story/frame_not_found.h"

namespace kerul::lidar::story {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> FilesOf(const std::string& path) {
  std::error_code error;
  if (!fs::is_directory(path, error)) return {path};
  std::vector<std::string> files;
  for (fs::directory_iterator entry(path, error), end; !error && entry != end;
       entry.increment(error)) {
    files.push_back(entry->path().string());
  }
  return files;
}

struct CaptureFile {
  std::int64_t first_time_us;
  std::string path;
};

// In the order of time.
std::vector<CaptureFile> CapturesIn(const std::string& path) {
  std::vector<CaptureFile> captures;
  for (const std::string& file : FilesOf(path)) {
    const std::optional<CaptureRecords> capture = CaptureRecords::Open(file);
    if (capture) captures.push_back({capture->FirstTimeUs(), file});
  }
  std::sort(captures.begin(), captures.end(), [](const CaptureFile& a, const CaptureFile& b) {
    return a.first_time_us < b.first_time_us;
  });
  return captures;
}

}  // namespace

CaptureCut::CaptureCut(const std::string& path, const TimeSpan& time)
    : file_(memfd_create("capture_cut", MFD_CLOEXEC)) {
  if (!file_.IsOpen()) {
    throw std::system_error(errno, std::generic_category(), "memory for packets");
  }
  const std::vector<CaptureFile> captures = CapturesIn(path);
  if (captures.empty()) throw FrameNotFound("there is no capture with packets");
  for (std::size_t i = 0; i < captures.size(); ++i) {
    if (captures[i].first_time_us >= time.end_us) break;
    // Each ends where the next one begins.
    if (i + 1 < captures.size() && captures[i + 1].first_time_us < time.begin_us) continue;
    Take(captures[i].path, time);
  }
}

void CaptureCut::Take(const std::string& path, const TimeSpan& time) {
  const std::optional<CaptureRecords> capture = CaptureRecords::Open(path);
  if (!capture) return;  // a rotating recorder has begun it anew
  if (bytes_ == 0) Write(capture->GlobalHeader());
  capture->Read(time, [this](std::span<const std::uint8_t> records) { Write(records); });
}

std::string CaptureCut::Path() const { return "/proc/self/fd/" + std::to_string(file_.Fd()); }

void CaptureCut::Write(std::span<const std::uint8_t> bytes) {
  bytes_ += bytes.size();
  if (bytes_ > kMostBytes) throw FrameNotFound("the capture holds too much of that time");
  while (!bytes.empty()) {
    const ssize_t written = write(file_.Fd(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) throw std::system_error(errno, std::generic_category(), "packets in memory");
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

}  // namespace kerul::lidar::story
