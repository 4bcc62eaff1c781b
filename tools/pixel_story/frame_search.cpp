#include "pixel_story/frame_search.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>

#include "MIPI_reader/parser/raw_packet.h"

namespace kerul::lidar::story {
namespace {

// Room for the frame before and for clocks that differ.
constexpr std::int64_t kBeforeUs = 700'000;
constexpr std::int64_t kAfterUs = 500'000;
constexpr std::int64_t kYoungUs = 5'000'000;
constexpr std::chrono::milliseconds kLookAgain{100};
constexpr int kPacketsPerFrame = 6912;

// Datagrams of the cut, counted from its first one.
struct FrameRun {
  std::size_t before = 0;  // where the frame before begins
  std::size_t begin = 0;
  int number = 0;  // among the frames from `before` on
  bool has_end = false;
};

bool IsNewer(std::uint8_t id, std::uint8_t than) {
  // A packet may come one or two frames late. A sensor that was started again begins with 0.
  const std::uint8_t back = static_cast<std::uint8_t>(than - id);
  return back != 0 && back > 2;
}

// The last frame of this number.
std::optional<FrameRun> LastRun(const DatagramFeed& feed, std::uint8_t wanted_id) {
  std::optional<FrameRun> found;
  FrameRun run;
  std::optional<std::uint8_t> id;
  UdpPacket packet{};
  std::size_t index = 0;
  for (; feed(packet); ++index) {
    if (packet.length <= raw_packet::kFrameIdOffset) continue;
    const std::uint8_t now = packet.buffer[raw_packet::kFrameIdOffset];
    if (id && !IsNewer(now, *id)) continue;
    if (found && id == wanted_id) found->has_end = true;
    run = {.before = id ? run.begin : index, .begin = index, .number = id ? 1 : 0};
    id = now;
    if (now == wanted_id) found = run;
  }
  if (found && index - found->begin >= kPacketsPerFrame) found->has_end = true;
  return found;
}

DatagramFeed FeedFrom(const std::string& path, std::size_t first) {
  DatagramFeed feed = FeedOfCapture(path);
  UdpPacket passed_over{};
  for (std::size_t i = 0; i < first; ++i) feed(passed_over);
  return feed;
}

bool IsYoung(const FrameSought& sought) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t now_us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  return std::abs(now_us - sought.published.end_us) < kYoungUs;
}

}  // namespace

FoundFrame FindFrame(const std::string& path, const FrameSought& sought) {
  const TimeSpan time{sought.published.begin_us - kBeforeUs, sought.published.end_us + kAfterUs};
  for (;;) {
    const bool last_look = !IsYoung(sought);
    const CaptureCut cut(path, time);
    std::optional<FrameRun> run;
    if (!cut.IsEmpty()) run = LastRun(FeedOfCapture(cut.Path()), sought.frame_id);
    if (run && (run->has_end || last_look)) {
      return {.feed = FeedFrom(cut.Path(), run->before), .frame = run->number};
    }
    if (last_look) {
      const std::string what =
          cut.IsEmpty() ? "packets" : "frame " + std::to_string(sought.frame_id);
      throw FrameNotFound("the capture holds no " + what + " of that time");
    }
    std::this_thread::sleep_for(kLookAgain);
  }
}

}  // namespace kerul::lidar::story
