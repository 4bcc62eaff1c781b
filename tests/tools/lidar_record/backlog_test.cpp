#include "lidar_record/backlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kerul::lidar::record {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;

const Backlog::Clock::time_point kStart{};

// A chunk that is told from others by its size.
void Add(Backlog& backlog, std::size_t bytes, milliseconds at) {
  mcap::Chunk chunk;
  chunk.bytes.resize(bytes);
  backlog.Add(std::move(chunk), kStart + at);
}

std::vector<std::size_t> Sizes(const Backlog& backlog) {
  std::vector<std::size_t> sizes;
  for (const Backlog::Entry& entry : backlog.Entries()) sizes.push_back(entry.chunk.bytes.size());
  return sizes;
}

TEST(Backlog, KeepsWhatCameUpToTheSpanBeforeTheNewest) {
  Backlog backlog(seconds(2), 1000);
  Add(backlog, 1, milliseconds(0));
  Add(backlog, 2, milliseconds(1000));
  Add(backlog, 3, milliseconds(2000));
  EXPECT_THAT(Sizes(backlog), ElementsAre(1, 2, 3));
  EXPECT_EQ(backlog.Span(), seconds(2));
  Add(backlog, 4, milliseconds(2001));
  EXPECT_THAT(Sizes(backlog), ElementsAre(2, 3, 4));
  EXPECT_EQ(backlog.Bytes(), 9U);
  EXPECT_EQ(backlog.DroppedEarly(), 0U);
}

TEST(Backlog, ASilenceLeavesWhatWasBeforeItUntilTheNextComes) {
  Backlog backlog(seconds(2), 1000);
  Add(backlog, 1, milliseconds(0));
  Add(backlog, 2, milliseconds(500));
  EXPECT_THAT(Sizes(backlog), ElementsAre(1, 2));
  Add(backlog, 3, seconds(60));
  EXPECT_THAT(Sizes(backlog), ElementsAre(3));
}

TEST(Backlog, KeepsNoMoreBytesThanItHasRoomForButAlwaysTheNewest) {
  Backlog backlog(seconds(100), 10);
  Add(backlog, 4, milliseconds(0));
  Add(backlog, 6, milliseconds(1));
  EXPECT_THAT(Sizes(backlog), ElementsAre(4, 6));
  Add(backlog, 5, milliseconds(2));
  EXPECT_THAT(Sizes(backlog), ElementsAre(5));
  EXPECT_EQ(backlog.DroppedEarly(), 2U);
  Add(backlog, 50, milliseconds(3));
  EXPECT_THAT(Sizes(backlog), ElementsAre(50));
  EXPECT_EQ(backlog.Bytes(), 50U);
}

}  // namespace
}  // namespace kerul::lidar::record
