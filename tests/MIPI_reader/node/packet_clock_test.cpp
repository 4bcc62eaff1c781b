#include "MIPI_reader/node/packet_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

namespace kerul::lidar {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::system_clock;

// Whether the clock, read between two reads of the system's, lies between them with a margin of
// `slack`. Tried several times, because the thread may be interrupted.
bool AgreesWithTheSystem(const PacketClock& clock, nanoseconds slack) {
  for (int i = 0; i < 100; ++i) {
    const auto before = system_clock::now();
    const auto now = clock.Now();
    const auto after = system_clock::now();
    if (now >= before - slack && now <= after + slack) return true;
  }
  return false;
}

TEST(PacketClock, IsTheSystemsBeforeTheRateIsKnown) {
  const PacketClock clock;
  EXPECT_TRUE(AgreesWithTheSystem(clock, nanoseconds(0)));
}

TEST(PacketClock, FollowsTheSystemsClockOnceTheRateIsKnown) {
  PacketClock clock;
  std::this_thread::sleep_for(milliseconds(20));
  clock.Set();
  EXPECT_TRUE(AgreesWithTheSystem(clock, milliseconds(1)));
  std::this_thread::sleep_for(milliseconds(50));
  // A rate that is wrong by a fiftieth would be off by a millisecond.
  EXPECT_TRUE(AgreesWithTheSystem(clock, milliseconds(1)));
}

TEST(PacketClock, TwoSetsInARowKeepTheRate) {
  PacketClock clock;
  std::this_thread::sleep_for(milliseconds(20));
  clock.Set();
  for (int i = 0; i < 1000; ++i) clock.Set();
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_TRUE(AgreesWithTheSystem(clock, milliseconds(1)));
}

TEST(PacketClock, TellsShortTimes) {
  PacketClock clock;
  std::this_thread::sleep_for(milliseconds(20));
  clock.Set();
  // The shortest of many, as the thread may be interrupted in any of them.
  nanoseconds shortest = std::chrono::seconds(1);
  for (int i = 0; i < 1000; ++i) {
    const auto start = clock.Now();
    const nanoseconds spent = clock.Now() - start;
    EXPECT_GE(spent.count(), 0);
    shortest = std::min(shortest, spent);
  }
  EXPECT_LT(shortest, std::chrono::microseconds(1));
}

}  // namespace
}  // namespace kerul::lidar
