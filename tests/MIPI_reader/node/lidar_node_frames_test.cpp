#include <numeric>
#include <random>

#include "support/node_fixture.h"
#include "support/point_compare.h"

namespace kerul::lidar::testing {
namespace {

class FrameAssembly : public NodeFixture {
 protected:
  void SetUp() override {
    DefaultConfig config = TestConfig();
    config.calib_enable = false;
    StartNode(config);
  }

  // Takes the packets [first, end) of the frame into the schedule; no points, the schedule alone.
  void Take(int first, int end) {
    std::vector<LidarPoint> points;
    for (int i = first; i < end; ++i) Access().UpdateFrames(i, points);
  }
  void TakeRow(int row) { Take(row * kPacketsPerMrow, (row + 1) * kPacketsPerMrow); }
  // All packets of a row but its last.
  void TakeRowWithLoss(int row) { Take(row * kPacketsPerMrow, (row + 1) * kPacketsPerMrow - 1); }
};

using Rows = std::vector<int>;

TEST_F(FrameAssembly, ARowRunsWhenTheNextCompletesAndTheLastAtOnce) {
  TakeRow(0);
  EXPECT_EQ(TakePublishedRows(), Rows{});
  EXPECT_EQ(Access().next_mrow(), 0);
  TakeRow(1);
  EXPECT_EQ(TakePublishedRows(), Rows{0});
  for (int row = 2; row < 35; ++row) TakeRow(row);
  TakePublishedRows();
  Take(35 * kPacketsPerMrow, kPacketsPerFrame - 1);
  EXPECT_EQ(TakePublishedRows(), Rows{});
  Take(kPacketsPerFrame - 1, kPacketsPerFrame);
  EXPECT_EQ(TakePublishedRows(), (Rows{34, 35}));
  EXPECT_EQ(Access().next_mrow(), 0);
}

TEST_F(FrameAssembly, ARowWithLossIsRunOncePacketsOfTheRowTwoFurtherDownArrive) {
  for (int row = 0; row < 5; ++row) TakeRow(row);
  EXPECT_EQ(TakePublishedRows(), (Rows{0, 1, 2, 3}));
  TakeRowWithLoss(5);
  EXPECT_EQ(TakePublishedRows(), Rows{});
  Take(6 * kPacketsPerMrow, 6 * kPacketsPerMrow + 1);
  EXPECT_EQ(TakePublishedRows(), Rows{4});
  EXPECT_EQ(Access().next_mrow(), 5);
  Take(6 * kPacketsPerMrow + 1, 7 * kPacketsPerMrow);
  EXPECT_EQ(TakePublishedRows(), Rows{5});
}

TEST_F(FrameAssembly, TwoRowsWithLossInARowAreBothRun) {
  for (int row = 0; row < 5; ++row) TakeRow(row);
  TakeRowWithLoss(5);
  TakeRowWithLoss(6);
  TakePublishedRows();
  Take(7 * kPacketsPerMrow, 7 * kPacketsPerMrow + 1);
  EXPECT_EQ(TakePublishedRows(), Rows{5});
}

TEST_F(FrameAssembly, ARepeatedPacketCountsOnceButOverwritesThePixels) {
  std::vector<LidarPoint> points(1);
  points[0].row = 20;
  points[0].col = 3;
  points[0].echoes[0].dist_raw = 1.0F;
  Access().UpdateFrames(3 * kPacketsPerMrow, points);
  points[0].echoes[0].dist_raw = 2.0F;
  Access().UpdateFrames(3 * kPacketsPerMrow, points);
  EXPECT_EQ(Access().mrow_packet_count()[3], 1);
  EXPECT_EQ(Access().frame().points[20][3].echoes[0].dist_raw, 2.0F);
}

TEST_F(FrameAssembly, ALateRowMovesTheScheduleBackAndTheRowsRunAgain) {
  for (int row = 0; row < 7; ++row) TakeRow(row);
  TakeRowWithLoss(7);
  for (int row = 8; row <= 20; ++row) TakeRow(row);
  EXPECT_EQ(Access().next_mrow(), 20);
  TakePublishedRows();
  Take(8 * kPacketsPerMrow - 1, 8 * kPacketsPerMrow);
  EXPECT_EQ(Access().next_mrow(), 7);
  EXPECT_EQ(TakePublishedRows(), Rows{});
  TakeRow(21);
  Rows again(14);
  std::iota(again.begin(), again.end(), 7);
  EXPECT_EQ(TakePublishedRows(), again);
}

TEST_F(FrameAssembly, APointOutsideTheGridIsDroppedButItsPacketCounts) {
  std::vector<LidarPoint> points(4);
  points[0].row = -1;
  points[1].col = -1;
  points[2].row = 216;
  points[3].col = 288;
  for (LidarPoint& point : points) point.echoes[0].dist_raw = 5.0F;
  Access().UpdateFrames(0, points);
  EXPECT_EQ(Access().mrow_packet_count()[0], 1);
  int filled = 0;
  for (const auto& row : Access().frame().points) {
    for (const LidarPoint& point : row) filled += point.echoes[0].dist_raw != 0.0F;
  }
  EXPECT_EQ(filled, 0);
}

// For the address sanitizer: places far outside the grid and outside a smaller one.
TEST_F(FrameAssembly, AskingForTheRecordsOfAnyBytesChangesNothing) {
  std::mt19937 random(1);
  const LidarFrame full = Access().frame();
  const LidarFrame small(7, 11, 2);
  int frames = 0;
  for (const LidarFrame& frame : {full, small, LidarFrame(0, 0, 2)}) {
    Access().frame() = frame;
    for (int round = 0; round < 2000; ++round) {
      UdpPacket packet{};
      for (std::uint8_t& byte : packet.buffer) byte = static_cast<std::uint8_t>(random());
      if (round % 2 == 0) packet.buffer[673] %= 40;  // miniflash row
      if (round % 2 == 0) packet.buffer[671] %= 5;   // column slot
      Access().PrefetchPixels(packet);
    }
    ASSERT_EQ(Access().frame().points.size(), frame.points.size());
    for (std::size_t row = 0; row < frame.points.size(); ++row) {
      for (std::size_t col = 0; col < frame.points[row].size(); ++col) {
        ASSERT_EQ(PointDifference(Access().frame().points[row][col], frame.points[row][col]), "");
      }
    }
    ++frames;
  }
  EXPECT_EQ(frames, 3);
  Access().frame() = full;
}

// Pixels inside and outside in turn, more than are copied at a time, and one pixel more than once.
TEST_F(FrameAssembly, OfPointsForOnePixelTheLastStaysAndThoseOutsideAreDropped) {
  std::vector<LidarPoint> points(50);
  for (std::size_t i = 0; i < points.size(); ++i) {
    points[i].row = i % 3 == 0 ? 216 : static_cast<int>(i);
    points[i].col = i % 3 == 1 ? 100 : static_cast<int>(i % 10);
    points[i].echoes[0].dist_raw = static_cast<float>(i + 1);
  }
  points[49].row = points[2].row;  // of the first copy and of the last
  points[49].col = points[2].col;
  points[8].row = points[7].row;  // side by side
  points[8].col = points[7].col;
  Access().CopyIntoFrame(points);
  int filled = 0;
  for (const auto& row : Access().frame().points) {
    for (const LidarPoint& point : row) filled += point.echoes[0].dist_raw != 0.0F;
  }
  EXPECT_EQ(filled, 50 - 17 - 2);
  const FrameRows& rows = Access().frame().points;
  EXPECT_EQ(rows[2][2].echoes[0].dist_raw, 50.0F);
  EXPECT_EQ(rows[7][100].echoes[0].dist_raw, 9.0F);
  EXPECT_EQ(rows[47][7].echoes[0].dist_raw, 48.0F);
}

TEST_F(FrameAssembly, AnIndexBehindTheProgressTablesIsCopiedAndOtherwiseIgnored) {
  std::vector<LidarPoint> points(1);
  points[0].row = 7;
  points[0].col = 8;
  points[0].echoes[0].dist_raw = 4.0F;
  Access().UpdateFrames(255 * kPacketsPerMrow, points);
  Access().UpdateFrames(kPacketsPerFrame, points);
  EXPECT_EQ(Access().frame().points[7][8].echoes[0].dist_raw, 4.0F);
  EXPECT_EQ(Access().mrow_packet_count(), Rows(36, 0));
  EXPECT_EQ(Access().next_mrow(), 0);
}

TEST_F(FrameAssembly, ASingleMiniflashRowRunsAtItsCompletion) {
  LidarNodeTestAccess access = Access();
  access.SetMiniflashRows(1);
  TakeRow(0);
  EXPECT_EQ(TakePublishedRows(), Rows{0});
}

}  // namespace
}  // namespace kerul::lidar::testing
