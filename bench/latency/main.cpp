// From a row's datagram to its points in the ring: how long a node takes for it, alone, beside a
// program that takes the memory, and beside nodes of other sensors. Prints Markdown.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "latency/histogram.h"
#include "latency/line.h"
#include "support/measuring.h"

namespace kerul::lidar::bench {
namespace {

using std::chrono::steady_clock;

constexpr const char* kUsage =
    "usage: kerul_latency [--frames N] [--rate FRAMES_PER_SECOND] [--svg FILE]\n"
    "       kerul_latency --scale [--frames N]\n"
    "  --frames N   of each measurement, 300 by default\n"
    "  --rate R     frames per second, 30 by default\n"
    "  --svg FILE   draws a histogram\n"
    "  --scale      1, 2, 4 and 6 sensors instead, at rising rates until rows are lost\n";

struct Options {
  int frames = 300;
  double rate = 30.0;
  std::string svg;
  bool scale = false;
};

using Lines = std::vector<std::unique_ptr<Line>>;

steady_clock::duration Seconds(double seconds) {
  return std::chrono::duration_cast<steady_clock::duration>(std::chrono::duration<double>(seconds));
}

// The first `count` lines at once, their frames spread evenly over the period.
Latencies Measure(Lines& lines, std::size_t count, const std::vector<FramePackets>& frames,
                  int frame_count, double rate) {
  const steady_clock::duration period = Seconds(1.0 / rate);
  const auto start = steady_clock::now() + Seconds(0.2);
  std::vector<std::future<Latencies>> running;
  for (std::size_t i = 0; i < count; ++i) {
    const auto begin = start + period * static_cast<int>(i) / static_cast<int>(count);
    running.push_back(std::async(std::launch::async, [&, begin, i] {
      return lines[i]->Send(frames, frame_count, begin, period);
    }));
  }
  Latencies all;
  for (std::future<Latencies>& line : running) all.Add(line.get());
  if (all.own.empty()) throw std::runtime_error("no row came through");
  return all;
}

double At(std::vector<double>& us, double share) {
  const auto at =
      us.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(us.size() - 1));
  std::nth_element(us.begin(), at, us.end());
  return *at;
}

void PrintLatencies(const std::string& name, std::vector<double> us) {
  std::printf("| %s | %.0f | %.0f | %.0f | %.0f |\n", name.c_str(), At(us, 0.5), At(us, 0.99),
              At(us, 0.999), At(us, 1.0));
}

void PrintLatency(const Options& options, const std::vector<FramePackets>& street, Lines& lines) {
  std::printf(
      "%d frames of the street at %.0f frames/s, each row's datagrams at once, microseconds:\n\n"
      "| | median | 99 %% | 99.9 %% | worst |\n|---|---|---|---|---|\n",
      options.frames, options.rate);
  std::vector<LatencyRun> runs;
  int lost_rows = 0;
  for (const bool beside : {false, true}) {
    std::atomic<bool> taking{beside};
    std::thread neighbour([&taking] {
      while (taking) OtherTraffic();
    });
    const Latencies latencies = Measure(lines, 1, street, options.frames, options.rate);
    taking = false;
    neighbour.join();
    const std::string name = beside ? "beside a memory-heavy program" : "alone";
    PrintLatencies(name + ", since the last datagram that the row waits for", latencies.needed);
    PrintLatencies(name + ", since the row's own last datagram", latencies.own);
    lost_rows += latencies.lost_rows;
    runs.push_back({name, latencies.needed});
  }
  std::printf("\nRows that did not come within their frame's time, not counted above: %d of %d.\n",
              lost_rows, 2 * options.frames * kMiniflashRows);
  if (!options.svg.empty()) WriteHistogram(options.svg, runs);
}

double ResidentMiB() {
  std::ifstream file("/proc/self/statm");
  long total = 0;
  long resident = 0;
  file >> total >> resident;
  return static_cast<double>(resident) * 4096.0 / (1024.0 * 1024.0);
}

void PrintScale(const Options& options, const std::vector<FramePackets>& street,
                const simulator::CalibrationBlobs& calibration) {
  std::printf(
      "Each sensor with a sender, a node and a ring of its own; %d frames each, microseconds since "
      "the\nlast datagram that a row waits for.\n\n"
      "| sensors | frames/s each | median | 99.9 %% | rows lost | datagrams dropped | node "
      "threads, "
      "cores | memory a node, MiB |\n|---|---|---|---|---|---|---|---|\n",
      options.frames);
  Lines lines;
  const double before = ResidentMiB();
  for (const std::size_t count : {1, 2, 4, 6}) {
    while (lines.size() < count) lines.push_back(std::make_unique<Line>(calibration));
    for (const double rate : {5.0, 10.0, 15.0, 20.0, 30.0, 40.0, 60.0, 80.0}) {
      Latencies all = Measure(lines, count, street, options.frames, rate);
      const double cores = all.node_ms * rate / (1e3 * options.frames);
      std::printf("| %zu | %.0f | %.0f | %.0f | %d | %llu | %.2f | %.0f |\n", count, rate,
                  At(all.needed, 0.5), At(all.needed, 0.999), all.lost_rows,
                  static_cast<unsigned long long>(all.dropped), cores,
                  (ResidentMiB() - before) / static_cast<double>(lines.size()));
      std::fflush(stdout);
      if (all.lost_rows > 0) break;
    }
  }
}

void Run(const Options& options) {
  const std::vector<FramePackets> street = MakeFrames("street", 4);
  const simulator::CalibrationBlobs calibration = MakeCalibration();
  std::printf("%s\n", DescribeMachine().c_str());
  if (options.scale) {
    PrintScale(options, street, calibration);
    return;
  }
  Lines lines;
  lines.push_back(std::make_unique<Line>(calibration));
  PrintLatency(options, street, lines);
}

Options Parse(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--scale") {
      options.scale = true;
      continue;
    }
    if (i + 1 == arguments.size()) throw std::invalid_argument(argument);
    const std::string& value = arguments[++i];
    if (argument == "--frames") {
      options.frames = std::stoi(value);
    } else if (argument == "--rate") {
      options.rate = std::stod(value);
    } else if (argument == "--svg") {
      options.svg = value;
    } else {
      throw std::invalid_argument(argument);
    }
  }
  if (options.frames < 1 || !(options.rate >= 0.1)) throw std::invalid_argument("value");
  return options;
}

}  // namespace
}  // namespace kerul::lidar::bench

int main(int argc, char** argv) {
  using namespace kerul::lidar::bench;
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (std::find(arguments.begin(), arguments.end(), "--help") != arguments.end()) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    Run(Parse(arguments));
    return 0;
  } catch (const std::logic_error&) {  // of the command line
    std::fputs(kUsage, stderr);
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kerul_latency: %s\n", error.what());
    return 1;
  }
}
