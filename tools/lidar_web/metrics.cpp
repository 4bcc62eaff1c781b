// The figures in Prometheus' text format: base units, _total for what only grows.

#include <charconv>
#include <string_view>

#include "kerul_lidar/point_packet_view.h"
#include "lidar_web/figures.h"

namespace kerul::lidar::web {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;

std::string Value(double value) {
  char text[64];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  return {text, end};
}
std::string Value(std::uint64_t value) { return std::to_string(value); }

class MetricsText {
 public:
  void Describe(std::string_view name, std::string_view type, std::string_view help) {
    name_ = "kerul_lidar_" + std::string(name);
    Head(type, help);
  }
  // One that all kinds of programs have, under the name that they all use.
  void DescribeCommon(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    Head(type, help);
  }
  template <class Number>
  void Sample(std::string_view labels, Number value) {
    SampleOf("", labels, Value(value));
  }
  void SampleOf(std::string_view ending, std::string_view labels, const std::string& value) {
    text_ += name_;
    text_ += ending;
    if (!labels.empty()) text_.append("{").append(labels).append("}");
    text_.append(" ").append(value).append("\n");
  }
  template <class Number>
  void One(std::string_view name, std::string_view type, std::string_view help, Number value) {
    Describe(name, type, help);
    Sample("", value);
  }
  std::string Text() && { return std::move(text_); }

 private:
  void Head(std::string_view type, std::string_view help) {
    text_ += "# HELP " + name_ + " " + std::string(help) + "\n# TYPE " + name_ + " " +
             std::string(type) + "\n";
  }

  std::string name_;
  std::string text_;
};

void AddStream(const StreamFigures& stream, TimePoint now, MetricsText& text) {
  const FrameStreamCounts& counts = stream.counts;
  text.Describe("frames_total", "counter", "Frames taken from the node's stream.");
  text.Sample("state=\"complete\"", counts.complete);
  text.Sample("state=\"incomplete\"", counts.incomplete);
  text.One("missing_frames_total", "counter", "Frame ids passed over between frames.",
           counts.missing_frames);
  text.One("missing_blocks_total", "counter",
           "Blocks of 6 x 6 pixels missing in incomplete frames.", stream.missing_blocks);
  text.One("point_packets_total", "counter", "Point packets taken.", counts.packets);
  text.One("point_packet_bytes_total", "counter", "Bytes of the point packets taken.",
           counts.packets * std::uint64_t{kPointPacketBytes});
  text.One("invalid_datagrams_total", "counter", "Datagrams that are no point packets.",
           counts.invalid);
  text.One("stream_restarts_total", "counter", "Times that another node, or a new ring, went on.",
           counts.restarts);
  text.Describe("lost_point_packets_total", "counter", "Point packets that this server missed.");
  text.Sample(stream.by_udp ? "place=\"udp\"" : "place=\"ring\"", counts.lost_packets);
  text.One("source_up", "gauge", "Whether ring or port is there.",
           std::uint64_t{stream.source_ok ? 1U : 0U});
  if (stream.last_packet) {
    text.One("silence_seconds", "gauge", "Since the last point packet.",
             std::chrono::duration<double>(now - *stream.last_packet).count());
  }
}

void AddLatency(const LatencyHistogram& latency, MetricsText& text) {
  text.Describe("frame_latency_seconds", "histogram",
                "From the time stamp of a frame's last packet until this server had the frame.");
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < latency.counts.size(); ++i) {
    count += latency.counts[i];
    const std::string limit = i < kLatencyLimits.size() ? Value(kLatencyLimits[i]) : "+Inf";
    text.SampleOf("_bucket", "le=\"" + limit + "\"", Value(count));
  }
  text.SampleOf("_sum", "", Value(latency.sum_s));
  text.SampleOf("_count", "", Value(count));
}

void AddRawLoss(const HostFigures& host, MetricsText& text) {
  if (!host.before_host && !host.kernel_drops) return;
  text.Describe("lost_raw_packets_total", "counter",
                "Raw packets of the sensor that the node did not get: before its host, or dropped "
                "by the kernel from its socket's full buffer (since that socket was opened).");
  if (host.before_host) text.Sample("place=\"before_host\"", *host.before_host);
  if (host.kernel_drops) text.Sample("place=\"kernel\"", *host.kernel_drops);
}

void AddNode(const std::optional<ProcessFigures>& node, MetricsText& text) {
  text.One("node_up", "gauge", "Whether the node's process is found.",
           std::uint64_t{node ? 1U : 0U});
  if (!node) return;
  text.One("node_resident_memory_bytes", "gauge", "Resident memory of the node's process.",
           node->resident_bytes);
  text.One("node_cpu_seconds_total", "counter", "Processor time of the node's process.",
           node->cpu_seconds);
}

void AddServer(const HostFigures& host, MetricsText& text) {
  text.One("web_clients", "gauge", "Clients on the live stream.",
           static_cast<std::uint64_t>(host.clients));
  text.One("web_frames_sent_total", "counter", "Frames sent on the live stream.", host.frames_sent);
  text.One("web_sent_bytes_total", "counter", "Bytes of messages sent on the live stream.",
           host.bytes_sent);
  text.One("web_refused_total", "counter", "Requests and connections refused.", host.refused);
  text.DescribeCommon("process_start_time_seconds", "gauge",
                      "Start of this server, seconds since the epoch.");
  text.Sample("", host.started_unix_s);
  if (!host.self) return;
  text.DescribeCommon("process_resident_memory_bytes", "gauge", "Resident memory of this server.");
  text.Sample("", host.self->resident_bytes);
  text.DescribeCommon("process_cpu_seconds_total", "counter", "Processor time of this server.");
  text.Sample("", host.self->cpu_seconds);
}

}  // namespace

std::string FormatMetrics(const StreamFigures& stream, const HostFigures& host, TimePoint now) {
  MetricsText text;
  text.Describe("build_info", "gauge", "This server's version and compiler; always 1.");
  text.Sample("version=\"" KERUL_VERSION "\",compiler=\"" __VERSION__ "\"", std::uint64_t{1});
  AddStream(stream, now, text);
  AddLatency(stream.latency, text);
  AddRawLoss(host, text);
  AddNode(host.node, text);
  AddServer(host, text);
  return std::move(text).Text();
}

}  // namespace kerul::lidar::web
