// What the server knows of the stream, and how it says so: JSON for the page, text for Prometheus.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "kerul_lidar/frame_stream.h"
#include "lidar_web/host_watch.h"

namespace kerul::lidar::web {

// Upper limits in seconds; the last bucket of a histogram has none.
inline constexpr std::array kLatencyLimits{0.001, 0.002, 0.005, 0.01, 0.02, 0.05,
                                           0.1,   0.2,   0.5,   1.0,  2.0,  5.0};

struct LatencyHistogram {
  std::array<std::uint64_t, kLatencyLimits.size() + 1> counts{};  // each bucket alone
  double sum_s = 0.0;

  void Take(double seconds) noexcept;
};

// Of what is read, since the start. Copied whole from thread to thread.
struct StreamFigures {
  FrameStreamCounts counts;
  std::uint64_t missing_blocks = 0;
  LatencyHistogram latency;
  double frames_per_s = 0.0;
  double packets_per_s = 0.0;
  std::optional<double> recent_latency_s;  // mean over the last second
  std::optional<std::chrono::steady_clock::time_point> last_packet;
  std::optional<std::chrono::steady_clock::time_point> last_complete;
  std::string source;  // FrameStream::Describe()
  bool source_ok = false;
  bool by_udp = false;
};

// Of the server and of the machine.
struct HostFigures {
  std::optional<std::uint64_t> before_host;
  std::optional<std::uint64_t> kernel_drops;
  std::optional<ProcessFigures> node;
  std::optional<ProcessFigures> self;
  std::chrono::steady_clock::time_point started;
  double started_unix_s = 0.0;
  std::int64_t clock_us = 0;
  int clients = 0;
  std::uint64_t frames_sent = 0;
  std::uint64_t bytes_sent = 0;  // of the stream's messages
  std::uint64_t refused = 0;     // requests and connections
};

struct Hello {
  std::string source;
  std::string directions;
  bool default_directions = true;
  bool mounted = false;
  bool stories = false;  // the page may ask for a pixel's story
};

std::string FormatHello(const Hello& hello);
std::string FormatFigures(const StreamFigures& stream, const HostFigures& host,
                          std::chrono::steady_clock::time_point now);
// Text format 0.0.4.
std::string FormatMetrics(const StreamFigures& stream, const HostFigures& host,
                          std::chrono::steady_clock::time_point now);

// Whether complete frames come, and a line that says so or why not.
struct Health {
  bool ok = false;
  std::string line;
};
Health CheckHealth(const StreamFigures& stream, std::chrono::steady_clock::time_point now);

}  // namespace kerul::lidar::web
