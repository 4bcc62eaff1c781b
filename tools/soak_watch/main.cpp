// Follows the node's ring until it is interrupted and prints what it counted, as key=value lines.
#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>

#include "kerul_lidar/received_packet.h"
#include "kerul_lidar/shm_ring_reader.h"
#include "soak_watch/stream_order.h"
#include "standard_streams.h"

namespace {

using namespace kerul::lidar;

std::atomic<bool> stop{false};

void Stop(int /*signal*/) { stop = true; }

void Print(const char* key, std::uint64_t value) {
  std::printf("%s=%llu\n", key, static_cast<unsigned long long>(value));
}

}  // namespace

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  CLI::App app{"Follows the node's ring until it is interrupted and prints what it counted"};
  std::string ring_name = "kerul_lidar_udp_shm";
  app.add_option("ring", ring_name, "Name of the ring")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGINT, Stop);
  std::signal(SIGTERM, Stop);
  ShmRingReader reader(ring_name.c_str(), RingStart::kOldest);
  reader.SurviveShortening();
  StreamOrder order;
  ReceivedPacket packet{};
  std::uint64_t refused = 0;
  std::uint64_t rings = 0;
  // What stands in the ring is still read after an interrupt.
  while (reader.Next(packet, std::chrono::milliseconds(50)) || !stop) {
    if (packet.number == 0) continue;
    if (rings != reader.Statistics().attached) order.Restart();
    rings = reader.Statistics().attached;
    PointPacketView view;
    if (view.Parse(packet.bytes, packet.length) == PointPacketError::kNone) {
      order.Take(view);
    } else {
      ++refused;
    }
    packet.number = 0;
  }
  const RingStatistics& ring = reader.Statistics();
  if (!reader.AttachProblem().empty()) {
    std::fprintf(stderr, "soak_watch: ring %s: %s\n", ring_name.c_str(),
                 reader.AttachProblem().c_str());
  }
  Print("accepted", ring.accepted);
  Print("lost", ring.lost);
  Print("torn", ring.torn);
  Print("refused", refused);
  Print("frames", order.Counts().frames);
  Print("frames_backwards", order.Counts().frames_backwards);
  Print("frames_missing", order.Counts().frames_missing);
  Print("packets_backwards", order.Counts().packets_backwards);
  return 0;
}
