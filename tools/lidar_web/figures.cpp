#include "lidar_web/figures.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "kerul_lidar/point_packet_view.h"
#include "support/json_text.h"

namespace kerul::lidar::web {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;

// Without complete frames for longer the stream is not healthy.
constexpr double kSilenceLimitS = 2.0;

std::string Number(double value, int decimals) {
  char text[64];
  const auto [end, error] =
      std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
  return error == std::errc{} && std::isfinite(value) ? std::string(text, end) : "null";
}

template <class Count>
std::string OrNull(const std::optional<Count>& count) {
  return count ? std::to_string(*count) : "null";
}

double SecondsSince(TimePoint then, TimePoint now) {
  return std::max(0.0, std::chrono::duration<double>(now - then).count());
}

std::string SilentFor(const std::optional<TimePoint>& last, TimePoint now) {
  return last ? Number(SecondsSince(*last, now), 3) : "null";
}

std::string FormatNode(const std::optional<ProcessFigures>& node) {
  if (!node) return "null";
  return "{\"pid\":" + std::to_string(node->pid) +
         ",\"resident_bytes\":" + std::to_string(node->resident_bytes) +
         ",\"cpu_seconds\":" + Number(node->cpu_seconds, 2) + "}";
}

const char* Bool(bool value) { return value ? "true" : "false"; }

}  // namespace

void LatencyHistogram::Take(double seconds) noexcept {
  const auto limit = std::lower_bound(kLatencyLimits.begin(), kLatencyLimits.end(), seconds);
  ++counts[static_cast<std::size_t>(limit - kLatencyLimits.begin())];
  sum_s += seconds;
}

std::string FormatHello(const Hello& hello) {
  return "{\"type\":\"hello\",\"protocol\":1,\"version\":\"" KERUL_VERSION "\",\"rows\":" +
         std::to_string(kFrameRows) + ",\"cols\":" + std::to_string(kFrameCols) +
         ",\"source\":" + JsonText(hello.source) + ",\"directions\":" + JsonText(hello.directions) +
         ",\"default_directions\":" + Bool(hello.default_directions) +
         ",\"mounted\":" + Bool(hello.mounted) + ",\"stories\":" + Bool(hello.stories) + "}";
}

std::string FormatFigures(const StreamFigures& stream, const HostFigures& host, TimePoint now) {
  const FrameStreamCounts& counts = stream.counts;
  std::string text = "{\"type\":\"figures\",\"clock_us\":" + std::to_string(host.clock_us) +
                     ",\"uptime_s\":" + Number(SecondsSince(host.started, now), 1) +
                     ",\"source\":" + JsonText(stream.source) +
                     ",\"source_ok\":" + Bool(stream.source_ok) +
                     ",\"frames_per_s\":" + Number(stream.frames_per_s, 2) +
                     ",\"packets_per_s\":" + Number(stream.packets_per_s, 1);
  text += ",\"latency_ms\":" +
          (stream.recent_latency_s ? Number(*stream.recent_latency_s * 1e3, 3) : "null");
  text += ",\"silent_s\":" + SilentFor(stream.last_packet, now);
  text += ",\"clients\":" + std::to_string(host.clients);
  text += ",\"frames\":{\"complete\":" + std::to_string(counts.complete) +
          ",\"incomplete\":" + std::to_string(counts.incomplete) +
          ",\"missing\":" + std::to_string(counts.missing_frames) + "}";
  text += ",\"lost\":{\"before_host\":" + OrNull(host.before_host) +
          ",\"kernel\":" + OrNull(host.kernel_drops) +
          ",\"ring\":" + std::to_string(counts.lost_packets) + "}";
  text += ",\"packets\":" + std::to_string(counts.packets) +
          ",\"invalid\":" + std::to_string(counts.invalid) +
          ",\"missing_blocks\":" + std::to_string(stream.missing_blocks) +
          ",\"restarts\":" + std::to_string(counts.restarts) +
          ",\"node\":" + FormatNode(host.node) + "}";
  return text;
}

Health CheckHealth(const StreamFigures& stream, TimePoint now) {
  if (!stream.last_complete) return {false, "no complete frame yet from " + stream.source + "\n"};
  const double silent_s = SecondsSince(*stream.last_complete, now);
  if (silent_s <= kSilenceLimitS) return {true, "ok\n"};
  return {false,
          "no complete frame for " + Number(silent_s, 1) + " s from " + stream.source + "\n"};
}

}  // namespace kerul::lidar::web
