#include "latency/line.h"

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <thread>

#include "kerul_lidar/point_packet_view.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "support/loopback.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {
namespace {

using std::chrono::steady_clock;

std::int64_t NowUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// A time for each row of a frame, us of the system clock; 0 for none.
using RowTimes = std::array<std::int64_t, kMiniflashRows>;

// Gives when each row's last datagram was handed to the system.
RowTimes SendFrame(const LoopbackSender& sender, const FramePackets& packets,
                   steady_clock::time_point start, steady_clock::duration period) {
  RowTimes times{};
  for (int row = 0; row < kMiniflashRows; ++row) {
    std::this_thread::sleep_until(start + period * 9 / 10 * row / kMiniflashRows);
    for (int i = 0; i < kPacketsPerRow; ++i) {
      if (i == kPacketsPerRow - 1) times[static_cast<std::size_t>(row)] = NowUs();
      sender.Send(packets[static_cast<std::size_t>(row * kPacketsPerRow + i)]);
    }
  }
  return times;
}

// Reads all that the ring holds. A row is there when the last of its packets is.
RowTimes TakeFrame(ShmRingReader& ring, int frame_id) {
  RowTimes published{};
  ReceivedPacket packet;
  PointPacketView view;
  while (ring.TryNext(packet)) {
    if (view.Parse(packet.bytes, packet.length) != PointPacketError::kNone) continue;
    if (view.FrameId() != frame_id) continue;
    auto& row = published[static_cast<std::size_t>(view.BlockRow())];
    row = std::max(row, view.TimestampUs());
  }
  return published;
}

void Compare(const RowTimes& sent, const RowTimes& published, Latencies& latencies) {
  for (std::size_t row = 0; row < published.size(); ++row) {
    if (published[row] == 0) {
      ++latencies.lost_rows;
      continue;
    }
    // A row looks at the one below, so it runs when that one is there.
    const std::size_t below = std::min(row + 1, published.size() - 1);
    latencies.own.push_back(static_cast<double>(published[row] - sent[row]));
    latencies.needed.push_back(static_cast<double>(published[row] - sent[below]));
  }
}

}  // namespace

void Latencies::Add(const Latencies& more) {
  own.insert(own.end(), more.own.begin(), more.own.end());
  needed.insert(needed.end(), more.needed.begin(), more.needed.end());
  lost_rows += more.lost_rows;
  dropped += more.dropped;
  node_ms += more.node_ms;
}

Line::Line(const simulator::CalibrationBlobs& calibration) : node_(calibration) {}

Latencies Line::Send(const std::vector<FramePackets>& frames, int frame_count,
                     steady_clock::time_point start, steady_clock::duration period) {
  const std::uint16_t port = FreePort();
  auto source = std::make_unique<SocketSource>(port, "");
  if (!source->Open()) throw std::runtime_error("cannot open a socket");
  const SocketSource* const socket = source.get();
  LidarNodeTestAccess access = node_.Access();
  access.source() = std::move(source);
  access.ResetFrame(0);
  ShmRingReader ring(node_.RingName().c_str());
  ReceivedPacket none;
  ring.TryNext(none);  // attaches
  std::thread worker([this] { node_.RunLoop(); });
  const double node_before = ThreadTimeMs(worker.native_handle());

  const LoopbackSender sender(port);
  Latencies latencies;
  for (int i = 0; i < frame_count; ++i) {
    FramePackets packets = frames[static_cast<std::size_t>(i) % frames.size()];
    simulator::StampFrame(packets, static_cast<std::uint32_t>(i), 0.0);
    const RowTimes sent = SendFrame(sender, packets, start + i * period, period);
    // As late as can be before the next frame.
    std::this_thread::sleep_until(start + (i + 1) * period - period / 50);
    Compare(sent, TakeFrame(ring, i % 256), latencies);
  }
  latencies.node_ms = ThreadTimeMs(worker.native_handle()) - node_before;
  latencies.dropped = socket->KernelDropped();
  access.node.RequestStop();
  worker.join();
  node_.UseMemorySource();
  return latencies;
}

}  // namespace kerul::lidar::bench
