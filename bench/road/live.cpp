#include "road/live.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include "source/socket_source.h"
#include "support/loopback.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {
namespace {

using std::chrono::steady_clock;

// The node's socket source; each call first sends the packet that it will find.
class OneInFlight : public SocketSource {
 public:
  OneInFlight(std::uint16_t port, std::atomic<bool>& running)
      : SocketSource(port, ""), sender_(port), running_(running) {}

  void Play(const FramePackets& packets) {
    packets_ = &packets;
    next_ = 0;
    sending_ = {};
  }
  double SendingMs() const { return std::chrono::duration<double, std::milli>(sending_).count(); }
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override {
    if (next_ < packets_->size()) {
      const auto start = steady_clock::now();
      sender_.Send((*packets_)[next_]);
      if (++next_ == packets_->size()) running_ = false;
      sending_ += steady_clock::now() - start;
    }
    return SocketSource::Receive(packet, length, flags, timeout_us);
  }

 private:
  LoopbackSender sender_;
  std::atomic<bool>& running_;
  const FramePackets* packets_ = nullptr;
  std::size_t next_ = 0;
  steady_clock::duration sending_{};
};

// The node's socket source with a count of what came.
class Counting : public SocketSource {
 public:
  using SocketSource::SocketSource;
  std::uint64_t received() const { return received_; }
  int Receive(UdpPacket& packet, std::uint16_t length, int flags, int timeout_us) override {
    const int result = SocketSource::Receive(packet, length, flags, timeout_us);
    if (result > 0) ++received_;
    return result;
  }

 private:
  std::uint64_t received_ = 0;  // read when the node's thread has ended
};

double WallMs(auto&& work) {
  const double start = WallTimeMs();
  work();
  return WallTimeMs() - start;
}

// Spreads a frame's packets over most of its period, a few at a time.
void SendFrame(const LoopbackSender& sender, const FramePackets& packets,
               steady_clock::time_point start, steady_clock::duration period) {
  constexpr std::size_t kBurst = 8;
  const auto step = period * 9 / 10 / static_cast<int>(packets.size() / kBurst);
  auto next = start;
  for (std::size_t i = 0; i < packets.size(); ++i) {
    if (i % kBurst == 0) {
      std::this_thread::sleep_until(next);
      next += step;
    }
    sender.Send(packets[i]);
  }
}

}  // namespace

LiveTimes MeasureLive(BothRoads& roads, std::vector<FramePackets>& frames, int rounds) {
  LiveTimes times;
  LidarNodeTestAccess access = roads.node().Access();
  for (int round = 0; round < rounds; ++round) {
    FramePackets& frame = frames[static_cast<std::size_t>(round) % frames.size()];
    const FramePackets first = roads.Stamp(frame);
    const FramePackets second = roads.Stamp(frame);
    const double in_memory = WallMs([&] { roads.node().Run(first); });

    auto source = std::make_unique<OneInFlight>(FreePort(), access.running());
    if (!source->Open()) throw std::runtime_error("cannot open a socket for the live run");
    source->Play(second);
    OneInFlight* const playing = source.get();
    access.source() = std::move(source);
    const double live = WallMs([&] { roads.node().RunLoop(); }) - playing->SendingMs();
    roads.node().UseMemorySource();

    roads.Feed(first);
    roads.Feed(second);
    roads.RequireSameBytes();
    if (round == 0) continue;  // settling
    times.in_memory.push_back(in_memory);
    times.live.push_back(live);
  }
  return times;
}

CpuShare MeasureCpuShare(BenchNode& node, const std::vector<FramePackets>& frames,
                         double frames_per_second, double seconds) {
  const std::uint16_t port = FreePort();
  auto source = std::make_unique<Counting>(port, "");
  if (!source->Open()) throw std::runtime_error("cannot open a socket for the live run");
  const Counting* const counting = source.get();
  node.Access().source() = std::move(source);

  std::thread worker([&node] { node.RunLoop(); });
  const LoopbackSender sender(port);
  const auto period = std::chrono::duration_cast<steady_clock::duration>(
      std::chrono::duration<double>(1.0 / frames_per_second));
  const int frame_count = static_cast<int>(seconds * frames_per_second);
  const auto start = steady_clock::now();
  const double cpu_before = ThreadTimeMs(worker.native_handle());
  for (int i = 0; i < frame_count; ++i) {
    FramePackets packets = frames[static_cast<std::size_t>(i) % frames.size()];
    simulator::StampFrame(packets, static_cast<std::uint32_t>(i), 0.0);
    SendFrame(sender, packets, start + i * period, period);
  }
  std::this_thread::sleep_until(start + frame_count * period);
  const double cpu_ms = ThreadTimeMs(worker.native_handle()) - cpu_before;
  const double wall_ms =
      std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
  node.Access().node.RequestStop();
  worker.join();

  const double sent = static_cast<double>(frame_count) * kPacketsPerFrame;
  CpuShare share{.percent = 100.0 * cpu_ms / wall_ms,
                 .lost_percent = 100.0 * (1.0 - static_cast<double>(counting->received()) / sent)};
  node.UseMemorySource();
  node.SkipPublished();
  return share;
}

}  // namespace kerul::lidar::bench
