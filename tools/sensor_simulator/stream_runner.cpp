#include "sensor_simulator/stream_runner.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <future>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sensor_simulator/raw_packet.h"
#include "sensor_simulator/scenes.h"
#include "sensor_simulator/truth_file.h"
#include "sensor_simulator/udp_sender.h"

namespace kerul::lidar::simulator {
namespace {

using Clock = std::chrono::steady_clock;

// Share of the frame period over which the packets are spread; the sensor rests for the remainder.
constexpr double kBusyShare = 0.94;
// Time of frame 0 in a capture, so that the same seed gives the same file: 2024-01-01 UTC.
constexpr std::uint64_t kCaptureEpochUs = 1704067200000000ULL;

struct PreparedFrame {
  std::vector<RawPacket> packets;
  SimulatedFrame frame;
};

// Hands out the frames in order, computing one ahead in the background, or loops over a few.
class FrameSupply {
 public:
  explicit FrameSupply(const StreamOptions& options)
      : simulator_(MakeScene(options.scene), options.sensor), loop_(options.loop) {
    next_number_ = options.first_frame;
    for (std::uint32_t i = 0; i < loop_; ++i) cached_.push_back(Prepare(next_number_ + i));
    if (loop_ == 0) ahead_ = Start();
  }

  // The packets carry the id and time of frame `number`; the truth in a loop that of the frame
  // that was computed.
  PreparedFrame Next(double period_s) {
    const std::uint32_t number = next_number_++;
    if (loop_ == 0) {
      PreparedFrame frame = ahead_.get();
      ahead_ = Start();
      return frame;
    }
    PreparedFrame frame = cached_[taken_++ % cached_.size()];
    StampFrame(frame.packets, number, number * period_s);
    frame.frame.number = number;
    return frame;
  }

 private:
  PreparedFrame Prepare(std::uint32_t number) {
    PreparedFrame prepared;
    prepared.frame = simulator_.Simulate(number);
    prepared.packets = EncodeFrame(prepared.frame);
    return prepared;
  }
  std::future<PreparedFrame> Start() {
    return std::async(std::launch::async,
                      [this, number = next_number_] { return Prepare(number); });
  }

  FrameSimulator simulator_;
  std::uint32_t loop_;
  std::uint32_t next_number_ = 0;
  std::size_t taken_ = 0;
  std::vector<PreparedFrame> cached_;
  std::future<PreparedFrame> ahead_;
};

class ProgressLine {
 public:
  ProgressLine(std::ostream& out, bool enabled) : out_(out), enabled_(enabled) {}

  void Update(const StreamSummary& summary, bool last) {
    if (!enabled_) return;
    const Clock::time_point now = Clock::now();
    const double passed = std::chrono::duration<double>(now - shown_at_).count();
    if (last) {
      Print(summary, {}, summary.elapsed_s, "\n");
      return;
    }
    if (passed < 1.0) return;
    Print(summary, shown_, passed, "");
    shown_at_ = now;
    shown_ = summary;
  }

 private:
  // The rates since `before`, which was `passed` seconds ago.
  void Print(const StreamSummary& summary, const StreamSummary& before, double passed,
             const char* end) {
    const double seconds = std::max(passed, 1e-3);
    char line[160];
    std::snprintf(line, sizeof line,
                  "\rframe %llu  %.1f frames/s  %.0f packets/s  %.1f MB/s  refused %llu   ",
                  static_cast<unsigned long long>(summary.frames),
                  static_cast<double>(summary.frames - before.frames) / seconds,
                  static_cast<double>(summary.datagrams - before.datagrams) / seconds,
                  static_cast<double>(summary.bytes - before.bytes) / seconds * 1e-6,
                  static_cast<unsigned long long>(summary.failed));
    out_ << line << end << std::flush;
  }

  std::ostream& out_;
  bool enabled_;
  Clock::time_point shown_at_ = Clock::now();
  StreamSummary shown_;
};

// Where datagrams go: the network or a file.
class Output {
 public:
  explicit Output(const StreamOptions& options) {
    if (options.capture_path.empty()) {
      sender_ = std::make_unique<UdpSender>(options.dest_ip, options.dest_port);
    } else {
      capture_ = std::make_unique<CaptureWriter>(options.capture_path, options.capture);
    }
  }

  void Send(const std::vector<Datagram>& datagrams, double time_s, double period_s,
            Clock::time_point start, StreamSummary& summary) {
    if (sender_ != nullptr) {
      const std::chrono::duration<double> span(period_s * kBusyShare);
      sender_->SendPaced(datagrams, start,
                         std::chrono::duration_cast<std::chrono::nanoseconds>(span));
      summary.datagrams = sender_->sent();
      summary.bytes = sender_->bytes();
      summary.failed = sender_->failed();
      return;
    }
    const double step = period_s * kBusyShare / static_cast<double>(datagrams.size() + 1);
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
      const double offset_s = time_s + step * static_cast<double>(i);
      capture_->Write(kCaptureEpochUs + static_cast<std::uint64_t>(std::llround(offset_s * 1e6)),
                      datagrams[i]);
      summary.bytes += datagrams[i].size();
    }
    summary.datagrams += datagrams.size();
  }

  void Close() {
    if (capture_ != nullptr) capture_->Close();
  }

 private:
  std::unique_ptr<UdpSender> sender_;
  std::unique_ptr<CaptureWriter> capture_;
};

std::uint64_t FrameLimit(const StreamOptions& options) {
  std::uint64_t limit = options.frames == 0 ? UINT64_MAX : options.frames;
  if (options.seconds > 0.0) {
    const long long timed = std::llround(options.seconds * options.frames_per_second);
    limit = std::min(limit, static_cast<std::uint64_t>(timed));
  }
  return limit;
}

}  // namespace

StreamSummary RunStream(const StreamOptions& options, const std::atomic<bool>& stop,
                        std::ostream& progress) {
  if (!(options.frames_per_second > 0.0)) {
    throw std::invalid_argument("the frame rate must be above 0");
  }
  StreamOptions used = options;
  const double period_s = 1.0 / options.frames_per_second;
  used.sensor.frame_period_s = period_s;
  const std::uint64_t limit = FrameLimit(options);
  FaultInjector faults(options.faults, options.sensor.seed);
  Output output(options);
  std::unique_ptr<TruthWriter> truth;
  if (!options.truth_path.empty()) truth = std::make_unique<TruthWriter>(options.truth_path);
  FrameSupply supply(used);

  StreamSummary summary;
  ProgressLine line(progress, options.progress);
  const Clock::time_point begin = Clock::now();
  Clock::time_point due = begin;
  while (summary.frames < limit && !stop.load()) {
    const double time_s = static_cast<double>(summary.frames) * period_s;
    const PreparedFrame prepared = supply.Next(period_s);
    if (truth != nullptr) truth->Write(prepared.frame);
    // A late frame starts now; the time lost is not made up.
    due = std::max(due, Clock::now());
    output.Send(faults.Apply(prepared.packets), time_s, period_s, due, summary);
    due += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(period_s));
    ++summary.frames;
    line.Update(summary, false);
  }
  output.Close();
  summary.elapsed_s = std::chrono::duration<double>(Clock::now() - begin).count();
  summary.faults = faults.counts();
  line.Update(summary, true);
  return summary;
}

}  // namespace kerul::lidar::simulator
