#include "support/measuring.h"

#include <cstdlib>
#include <ctime>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

namespace kerul::lidar::bench {
namespace {

double ReadClockMs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

std::string ProcessorName() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "unknown processor";
}

std::string InstructionSets() {
#if defined(__x86_64__)
  std::string sets = "SSE2";
  if (__builtin_cpu_supports("avx2") != 0) sets += ", AVX2";
  if (__builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0) {
    sets += ", AVX-512";
  }
  return sets;
#else
  return "not x86-64";
#endif
}

}  // namespace

double ThreadTimeMs() { return ReadClockMs(CLOCK_THREAD_CPUTIME_ID); }
double ThreadTimeMs(pthread_t thread) {
  clockid_t clock{};
  return pthread_getcpuclockid(thread, &clock) == 0 ? ReadClockMs(clock) : 0.0;
}
double ThreadClockCostMs() {
  constexpr int kReads = 2000;
  const double start = ThreadTimeMs();
  double last = start;
  for (int i = 0; i < kReads; ++i) last = ThreadTimeMs();
  return (last - start) / kReads;
}

double WallTimeMs() { return ReadClockMs(CLOCK_MONOTONIC); }

void OtherTraffic() {
  static std::vector<std::uint64_t> memory(100'000'000 / sizeof(std::uint64_t), 1);
  for (std::uint64_t& word : memory) ++word;
}

Spread SpreadOf(std::vector<double> values) {
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  const double median =
      values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
  return {values.front(), median, values.back()};
}

std::vector<double> Ratios(const std::vector<double>& upper, const std::vector<double>& lower) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < upper.size() && i < lower.size(); ++i) {
    ratios.push_back(upper[i] / lower[i]);
  }
  return ratios;
}

std::string DescribeMachine() {
  std::ostringstream text;
  double load = 0.0;
  getloadavg(&load, 1);
  text << "- Processor: " << ProcessorName() << ", " << std::thread::hardware_concurrency()
       << " cores, " << InstructionSets() << "; load when started " << load << "\n"
       << "- Compiler: " << KERUL_BENCH_COMPILER << "; flags: " << KERUL_BENCH_FLAGS << "\n";
#ifndef NDEBUG
  text << "\n**This is a debug build: the figures say nothing about the product.**\n";
#endif
  return text.str();
}

}  // namespace kerul::lidar::bench
