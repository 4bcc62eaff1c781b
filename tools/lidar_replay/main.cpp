// Plays a capture file through the node once and writes the point packets to standard output.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include "kerul_lidar/point_packet_layout.h"
#include "lidar_replay/replay.h"
#include "standard_streams.h"

namespace {

using namespace kerul::lidar;

std::atomic<bool> stop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used by a signal handler");

void Stop(int /*signal*/) { stop = true; }

// The ring in shared memory goes with an orderly end only. Without SA_RESTART, so that a write to a
// full pipe ends too.
void EndOrderlyAt(int signal_number) {
  struct sigaction action {};
  action.sa_handler = Stop;
  sigaction(signal_number, &action, nullptr);
}

// False when nobody reads any more, or at a signal. A pipe that is full holds the node up: nothing
// is lost.
bool WriteAll(const std::uint8_t* bytes, std::size_t size) {
  while (size > 0 && !stop) {
    const ssize_t written = write(STDOUT_FILENO, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      if (errno != EPIPE) std::cerr << "lidar_replay: " << std::strerror(errno) << std::endl;
      return false;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return !stop;
}

}  // namespace

int main(int argc, char** argv) {
  OpenMissingStandardStreams();
  CLI::App app{
      "Plays a capture file of raw packets through the node, once and without loss, and writes the "
      "point packets to standard output, one after another"};
  std::string capture;
  std::string cali_path;
  bool verbose = false;
  app.add_option("capture", capture, "Capture file, as sensor_simulator and tcpdump write it")
      ->required();
  app.add_option("--cali_path", cali_path, "The sensor's calibration, as for lidar_node")
      ->required();
  app.add_flag("--verbose", verbose, "Show the node's lines on standard error");
  CLI11_PARSE(app, argc, argv);
  if (isatty(STDOUT_FILENO) != 0) {
    std::cerr << "lidar_replay: standard output is a terminal; the packets are for a program\n";
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) EndOrderlyAt(signal_number);
  // Standard output belongs to the packets.
  std::cout.rdbuf(verbose ? std::cerr.rdbuf() : nullptr);
  try {
    const bool whole = replay::Replay(capture, cali_path, [](const ReceivedPacket& packet) {
      return WriteAll(packet.bytes, packet.length);
    });
    return whole ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "lidar_replay: " << error.what() << std::endl;
    return 1;
  }
}
