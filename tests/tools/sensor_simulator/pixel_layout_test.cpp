#include "sensor_simulator/pixel_layout.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>
#include <vector>

namespace kerul::lidar::simulator {
namespace {

TEST(PixelLayout, EveryPixelStandsInExactlyOneBlockOfAFrame) {
  std::vector<int> seen(kPixels, 0);
  for (int packet = 0; packet < kPacketsPerFrame; ++packet) {
    const PacketPlace place = PlaceOfPacket(packet);
    for (int block = 0; block < kPacketPixels; ++block) {
      const GridPlace grid = PlaceOfPixelId(place.group, place.slot, PixelIdOfBlock(place, block));
      ASSERT_TRUE(grid.row >= 0 && grid.row < kRows && grid.col >= 0 && grid.col < kCols);
      ++seen[static_cast<std::size_t>(PixelIndex(grid.row, grid.col))];
    }
  }
  EXPECT_EQ(std::set<int>(seen.begin(), seen.end()), std::set<int>{1});
}

TEST(PixelLayout, TheReceiversPacketNumberIsTheSendersPlaceInTheFrame) {
  for (int packet = 0; packet < kPacketsPerFrame; ++packet) {
    const PacketPlace place = PlaceOfPacket(packet);
    const int last_pixel_id = PixelIdOfBlock(place, kPacketPixels - 1);
    ASSERT_EQ(place.group * 192 + place.slot * 48 + last_pixel_id / 72 * 8 + place.subpacket,
              packet);
  }
}

TEST(PixelLayout, PixelIdsOfAPacketStayWithinItsRun) {
  for (int packet = 0; packet < kPacketsPerGroup; ++packet) {
    const PacketPlace place = PlaceOfPacket(packet);
    for (int block = 0; block < kPacketPixels; ++block) {
      const int pixel_id = PixelIdOfBlock(place, block);
      ASSERT_LT(pixel_id, kPixelIds);
      ASSERT_EQ(pixel_id / 72, place.run);
    }
  }
}

TEST(PixelLayout, FirstAndLastPixelStandInTheCorners) {
  EXPECT_EQ(PlaceOfPixelId(0, 0, 0).row, 0);
  EXPECT_EQ(PlaceOfPixelId(0, 0, 0).col, 0);
  EXPECT_EQ(PlaceOfPixelId(35, 3, 431).row, 215);
  EXPECT_EQ(PlaceOfPixelId(35, 3, 431).col, 287);
}

// Worked out by hand: id 1 is one column step of 24 further; id 12 one row further; id 36 one
// column; id 108 three rows; id 216 three columns.
TEST(PixelLayout, PixelIdsStepThroughColumnsThenRowsThenBlocks) {
  const auto place = [](int id) {
    const GridPlace grid = PlaceOfPixelId(2, 1, id);
    return std::pair(grid.row, grid.col);
  };
  EXPECT_EQ(place(0), std::pair(12, 6));
  EXPECT_EQ(place(1), std::pair(12, 30));
  EXPECT_EQ(place(12), std::pair(13, 6));
  EXPECT_EQ(place(36), std::pair(12, 7));
  EXPECT_EQ(place(108), std::pair(15, 6));
  EXPECT_EQ(place(216), std::pair(12, 9));
}

TEST(PixelLayout, TableEntriesRunTileByTileAndColumnByColumnWithinATile) {
  EXPECT_EQ(TableIndex(0, 0), 0);
  EXPECT_EQ(TableIndex(1, 0), 1);
  EXPECT_EQ(TableIndex(0, 1), 6);
  EXPECT_EQ(TableIndex(0, 6), 36);
  EXPECT_EQ(TableIndex(6, 0), 48 * 36);
  EXPECT_EQ(TableIndex(215, 287), kPixels - 1);
  std::set<int> entries;
  for (int row = 0; row < kRows; ++row) {
    for (int col = 0; col < kCols; ++col) entries.insert(TableIndex(row, col));
  }
  EXPECT_EQ(entries.size(), static_cast<std::size_t>(kPixels));
}

}  // namespace
}  // namespace kerul::lidar::simulator
