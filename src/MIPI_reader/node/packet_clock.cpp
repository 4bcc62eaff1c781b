#include "MIPI_reader/node/packet_clock.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kerul::lidar {
namespace {

using std::chrono::nanoseconds;

// A shorter time between two Sets does not tell the rate well enough.
constexpr auto kShortestSpan = std::chrono::milliseconds(1);
// Nanoseconds per tick. Rates outside come from a machine that slept or moved in between.
constexpr double kFastest = 0.05;
constexpr double kSlowest = 10.0;

#if defined(__x86_64__)
std::uint64_t Ticks() noexcept { return __rdtsc(); }
#else
std::uint64_t Ticks() noexcept { return 0; }
#endif

}  // namespace

void PacketClock::Set() noexcept {
  const auto steady = std::chrono::steady_clock::now();
  const std::uint64_t ticks = Ticks();
  const auto span = steady - steady_;
  if (ticks <= ticks_) {
    ns_per_tick_ = 0.0;  // no counter, or one that was set back
  } else if (ticks_ != 0 && span >= kShortestSpan) {
    const double rate =
        static_cast<double>(nanoseconds(span).count()) / static_cast<double>(ticks - ticks_);
    ns_per_tick_ = rate > kFastest && rate < kSlowest ? rate : 0.0;
  }
  system_ = std::chrono::system_clock::now();
  steady_ = steady;
  ticks_ = ticks;
}

PacketClock::TimePoint PacketClock::Now() const noexcept {
  if (ns_per_tick_ == 0.0) return std::chrono::system_clock::now();
  const auto ticks = static_cast<std::int64_t>(Ticks() - ticks_);
  const auto past = static_cast<std::int64_t>(static_cast<double>(ticks) * ns_per_tick_);
  return system_ + std::chrono::duration_cast<TimePoint::duration>(nanoseconds(past));
}

}  // namespace kerul::lidar
