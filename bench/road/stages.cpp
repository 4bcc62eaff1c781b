#include "road/stages.h"

#include <cstring>
#include <stdexcept>

#include "support/measuring.h"

namespace kerul::lidar::bench {
namespace {

constexpr std::size_t kPacketsAtATime = 16;
static_assert(kPacketsPerRow % kPacketsAtATime == 0);

void Load(const RawPacket& raw, UdpPacket& datagram) {
  std::memcpy(datagram.buffer, raw.data(), raw.size());
  datagram.length = static_cast<std::uint16_t>(raw.size());
}

Stage StageOf(RowPass pass) {
  switch (pass) {
    case RowPass::kPrime:
    case RowPass::kNeighbours:
      return Stage::kNeighbours;
    case RowPass::kGround:
      return Stage::kGround;
    case RowPass::kShotNoise:
      return Stage::kShotNoise;
    case RowPass::kBloom:
      return Stage::kBloom;
    case RowPass::kOrder:
      return Stage::kOrder;
  }
  throw std::logic_error("no such pass");
}

// Books the time since the pass before, or since the start. Takes the passes as the node runs them.
struct PassClock {
  static constexpr bool kPrimesLate = true;
  StageTimes& times;
  double clock_cost_ms;
  double last_ms;

  void operator()(RowPass pass, const LidarFrame& /*frame*/) {
    times[static_cast<std::size_t>(StageOf(pass))] += ThreadTimeMs() - last_ms - clock_cost_ms;
    last_ms = ThreadTimeMs();
  }
};

}  // namespace

std::string_view StageName(int stage) {
  constexpr std::string_view kNames[kStages] = {
      "take from memory",
      "parse and echo computation",
      "calibration, all five steps",
      "records into the frame",
      "reset of pixels not overwritten",
      "ground",
      "priming and neighbour validation",
      "shot noise",
      "bloom",
      "echo order",
      "distance map",
      "encode and ring",
      "reset at the frame's end",
  };
  return kNames[stage];
}

StagedRoad::StagedRoad(BenchNode& node)
    : node_(node.Access()),
      datagrams_(kPacketsAtATime),
      points_(kPacketsAtATime),
      planes_(kPacketsAtATime),
      records_(kPacketsAtATime),
      clock_cost_ms_(ThreadClockCostMs()) {}

template <typename Work>
void StagedRoad::Measure(Stage stage, Work&& work) {
  const double start = ThreadTimeMs();
  work();
  times_[static_cast<std::size_t>(stage)] += ThreadTimeMs() - start - clock_cost_ms_;
}

StageTimes StagedRoad::Run(const FramePackets& packets) {
  times_ = {};
  RunRows(packets, kMiniflashRows);
  FinishRow(kMiniflashRows - 1);
  Measure(Stage::kReset, [&] { node_.ResetFrame((frame_id_ + 1) % 256); });
  return times_;
}

void StagedRoad::RunRows(const FramePackets& packets, int rows) {
  for (int m_row = 0; m_row < rows; ++m_row) {
    const auto first = static_cast<std::size_t>(m_row * kPacketsPerRow);
    for (std::size_t packet = 0; packet < kPacketsPerRow; packet += kPacketsAtATime) {
      TakePackets(packets, first + packet);
    }
    // The schedule lags by a row: the passes look one row down.
    if (m_row > 0) FinishRow(m_row - 1);
  }
}

void StagedRoad::TakePackets(const FramePackets& packets, std::size_t first) {
  Measure(Stage::kReceive, [&] {
    for (std::size_t i = 0; i < kPacketsAtATime; ++i) Load(packets[first + i], datagrams_[i]);
  });
  if (node_.StaysInPlanes()) {
    DecodeInPlanes();
  } else {
    DecodeInRecords();
  }
}

void StagedRoad::DecodeInPlanes() {
  const auto for_each_packet = [](auto&& work) {
    return [work] {
      for (std::size_t i = 0; i < kPacketsAtATime; ++i) work(i);
    };
  };
  Measure(Stage::kParse, for_each_packet([&](std::size_t i) {
            records_[i] = node_.PrefetchPixels(datagrams_[i]);
            node_.parser().ParsePacket(datagrams_[i], planes_[i], frame_id_,
                                       node_.config().echo_num);
          }));
  Measure(Stage::kCalibrate,
          for_each_packet([&](std::size_t i) { node_.CalibratePlanes(planes_[i]); }));
  Measure(Stage::kCopy,
          for_each_packet([&](std::size_t i) { node_.StoreIntoFrame(planes_[i], records_[i]); }));
}

// As in the node, the records of the last packet are not cleared.
void StagedRoad::DecodeInRecords() {
  const auto for_each_packet = [&](auto&& work) {
    return [&, work] {
      for (std::vector<LidarPoint>& points : points_) work(points);
    };
  };
  Measure(Stage::kParse, [&] {
    for (std::size_t i = 0; i < kPacketsAtATime; ++i) {
      node_.PrefetchPixels(datagrams_[i]);
      node_.parser().ParsePacket(datagrams_[i], points_[i], frame_id_, node_.config().echo_num);
    }
  });
  Measure(Stage::kCalibrate, for_each_packet([&](auto& points) { node_.CalibratePoints(points); }));
  Measure(Stage::kCopy, for_each_packet([&](auto& points) { node_.CopyIntoFrame(points); }));
}

void StagedRoad::FinishRow(int m_row) {
  Measure(Stage::kStale,
          [&] { node_.stale_pixels().ResetRows(node_.frame(), 6 * m_row - 6, 6 * m_row + 12); });
  PassClock clock{times_, clock_cost_ms_, ThreadTimeMs()};
  RunRowPasses(node_.frame(), m_row, node_.PassSettings(m_row), clock);
  Measure(Stage::kRecord, [&] { node_.RecordDistances(m_row); });
  Measure(Stage::kForward, [&] { node_.Forward(m_row); });
}

FrameMix MixOf(const FramePackets& packets, LidarNodeTestAccess node) {
  FrameMix mix;
  UdpPacket datagram{};
  std::vector<LidarPoint> points;
  int frame_id = 0;
  for (const RawPacket& packet : packets) {
    Load(packet, datagram);
    node.parser().ParsePacket(datagram, points, frame_id, node.config().echo_num);
    node.CalibratePoints(points);
    for (const LidarPoint& point : points) {
      if (point.echoes[0].dist_raw > 0.0F) mix.first_echoes += 1.0 / kPixelsPerFrame;
      if (point.echoes[1].dist_raw > 0.0F) mix.second_echoes += 1.0 / kPixelsPerFrame;
      if (point.echoes[0].highRefl) ++mix.bright_pixels;
    }
  }
  return mix;
}

}  // namespace kerul::lidar::bench
