#include "lidar_view/status_line.h"

#include <iomanip>
#include <sstream>

namespace kerul::lidar::view {
namespace {

double PerSecond(std::uint64_t count, double seconds) {
  return seconds > 0.0 ? static_cast<double>(count) / seconds : 0.0;
}

double MeanLatencyMs(const ViewCounts& before, const ViewCounts& now) {
  const std::uint64_t packets = now.packets - before.packets;
  if (packets == 0) return 0.0;
  return (now.latency_sum_ms - before.latency_sum_ms) / static_cast<double>(packets);
}

}  // namespace

std::string FormatStatus(const ViewCounts& before, const ViewCounts& now, double seconds) {
  const std::uint64_t frames = now.complete + now.incomplete - before.complete - before.incomplete;
  std::ostringstream line;
  line << std::fixed << std::setprecision(1) << "frames/s " << PerSecond(frames, seconds)
       << std::setprecision(0) << "  packets/s " << PerSecond(now.packets - before.packets, seconds)
       << "  lost " << now.lost << "  incomplete " << now.incomplete << "  missing " << now.missing
       << std::setprecision(2) << "  latency " << MeanLatencyMs(before, now) << " ms";
  if (now.invalid != 0) line << "  invalid " << now.invalid;
  return line.str();
}

std::string FormatSummary(const ViewCounts& counts, double seconds) {
  const std::uint64_t frames = counts.complete + counts.incomplete;
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << "frames=" << frames
       << "\ncomplete=" << counts.complete << "\nincomplete=" << counts.incomplete
       << "\nmissing_frames=" << counts.missing << "\npackets=" << counts.packets
       << "\ninvalid=" << counts.invalid << "\nlost=" << counts.lost << "\nseconds=" << seconds
       << "\nframes_per_s=" << PerSecond(frames, seconds)
       << "\nlatency_ms=" << MeanLatencyMs({}, counts) << "\n";
  return text.str();
}

}  // namespace kerul::lidar::view
