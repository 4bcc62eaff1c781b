#include "kerul_lidar/frame_collector.h"

#include <gtest/gtest.h>

#include "client/point_packet_by_hand.h"

namespace kerul::lidar {
namespace {

const CollectedFrame* Add(FrameCollector& collector, const PacketFields& fields) {
  const PacketBytes bytes = MakePacket(fields);
  PointPacketView view;
  EXPECT_EQ(view.Parse(bytes.data(), bytes.size()), PointPacketError::kNone);
  return collector.Add(view);
}

// Blocks first..last of a frame of one echo. Gives the last frame that was closed.
const CollectedFrame* AddBlocks(FrameCollector& collector, PacketFields fields, int first,
                                int last) {
  const CollectedFrame* out = nullptr;
  for (int block = first; block <= last; ++block) {
    fields.block = block;
    const CollectedFrame* frame = Add(collector, fields);
    if (frame != nullptr) out = frame;
  }
  return out;
}

PacketFields OfFrame(int frame_id, std::uint32_t sequence_base) {
  PacketFields fields;
  fields.frame_id = frame_id;
  fields.sequence_base = sequence_base;
  return fields;
}

TEST(FrameCollector, AFrameOfOneEchoComesOutWithItsLastBlock) {
  FrameCollector collector;
  EXPECT_EQ(AddBlocks(collector, OfFrame(9, 0), 0, 1726), nullptr);
  const CollectedFrame* frame = AddBlocks(collector, OfFrame(9, 0), 1727, 1727);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->IsComplete());
  EXPECT_EQ(frame->key.frame_id, 9);
  EXPECT_EQ(frame->key.echoes, 1);
  EXPECT_EQ(frame->packets, 1728U);
  EXPECT_EQ(collector.Statistics().complete, 1U);
  EXPECT_EQ(collector.Statistics().incomplete, 0U);
}

TEST(FrameCollector, PointsStandAtTheirPixels) {
  FrameCollector collector;
  PacketFields fields = OfFrame(1, 0);
  const CollectedFrame* frame = nullptr;
  for (int block = 0; block < 1728; ++block) {
    fields.block = block;
    fields.distance = 10 * block;
    fields.payload = {static_cast<std::uint8_t>(block), 0, 0};
    const CollectedFrame* out = Add(collector, fields);
    if (out != nullptr) frame = out;
  }
  ASSERT_NE(frame, nullptr);
  int compared = 0;
  for (int row = 0; row < 216; ++row) {
    for (int col = 0; col < 288; ++col) {
      const int block = row / 6 * 48 + col / 6;
      const FramePoint& point = frame->At(0, row, col);
      ASSERT_EQ(point.distance, (10 * block + col % 6 * 6 + row % 6) & 0xFFFF);
      ASSERT_EQ(point.payload[0], block & 0xFF);
      ++compared;
    }
  }
  EXPECT_EQ(compared, 62208);
}

TEST(FrameCollector, RangeIsInMetres) {
  FrameCollector collector;
  const CollectedFrame* frame = AddBlocks(collector, OfFrame(1, 0), 0, 1727);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->RangeM(frame->At(0, 0, 0)), 1.0F);  // 250 units of 4 mm
}

TEST(FrameCollector, AFrameOfTwoEchoesNeedsBothPacketsOfEachBlock) {
  FrameCollector collector;
  PacketFields fields = OfFrame(3, 100);
  const CollectedFrame* frame = nullptr;
  int given = 0;
  for (int block = 0; block < 1728; ++block) {
    for (const int marker : {1, 2}) {
      fields.block = block;
      fields.marker = marker;
      fields.distance = marker * 1000;
      const CollectedFrame* out = Add(collector, fields);
      given += out != nullptr;
      if (out != nullptr) frame = out;
    }
  }
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(given, 1);
  EXPECT_TRUE(frame->IsComplete());
  EXPECT_EQ(frame->key.echoes, 2);
  EXPECT_EQ(frame->packets, 3456U);
  EXPECT_EQ(frame->At(0, 0, 0).distance, 1000);
  EXPECT_EQ(frame->At(1, 0, 0).distance, 2000);
}

TEST(FrameCollector, AnotherFrameIdClosesAnIncompleteFrame) {
  FrameCollector collector;
  EXPECT_EQ(AddBlocks(collector, OfFrame(5, 0), 0, 1726), nullptr);
  const CollectedFrame* frame = AddBlocks(collector, OfFrame(6, 0), 0, 0);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->key.frame_id, 5);
  EXPECT_FALSE(frame->IsComplete());
  EXPECT_EQ(frame->MissingBlocks(), 1);
  EXPECT_FALSE(frame->present[0][1727]);
  EXPECT_TRUE(frame->present[0][1726]);
  EXPECT_EQ(frame->At(0, 215, 287).distance, 0) << "a missing block reads as no return";
  EXPECT_EQ(collector.Statistics().incomplete, 1U);
  EXPECT_EQ(collector.Statistics().missing_blocks, 1U);
  // The packet that closed it belongs to the next frame, which completes.
  const CollectedFrame* next = AddBlocks(collector, OfFrame(6, 0), 1, 1727);
  ASSERT_NE(next, nullptr);
  EXPECT_TRUE(next->IsComplete());
}

TEST(FrameCollector, MissingEchoesCountAsMissingBlocks) {
  FrameCollector collector;
  PacketFields fields = OfFrame(5, 0);
  fields.marker = 1;
  AddBlocks(collector, fields, 0, 1727);
  const CollectedFrame* frame = collector.Flush();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->MissingBlocks(), 1728);
}

TEST(FrameCollector, ADuplicateOverwritesAndIsCounted) {
  FrameCollector collector;
  PacketFields fields = OfFrame(5, 0);
  AddBlocks(collector, fields, 0, 10);
  fields.distance = 5000;
  AddBlocks(collector, fields, 4, 4);
  const CollectedFrame* frame = AddBlocks(collector, fields, 11, 1727);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->duplicates, 1U);
  EXPECT_EQ(frame->At(0, 0, 24).distance, 5000);
  EXPECT_EQ(frame->At(0, 0, 18).distance, 250);
  EXPECT_EQ(frame->packets, 1729U);
  EXPECT_EQ(collector.Statistics().duplicates, 1U);
}

TEST(FrameCollector, PacketsOfTheFrameJustClosedAreLate) {
  FrameCollector collector;
  AddBlocks(collector, OfFrame(5, 0), 0, 1727);
  EXPECT_EQ(AddBlocks(collector, OfFrame(5, 0), 100, 103), nullptr);
  EXPECT_EQ(collector.Statistics().late, 4U);
  EXPECT_EQ(AddBlocks(collector, OfFrame(6, 1728), 0, 0), nullptr);
  EXPECT_EQ(AddBlocks(collector, OfFrame(5, 0), 104, 104), nullptr) << "a straggler in between";
  EXPECT_EQ(collector.Statistics().late, 5U);
  EXPECT_NE(AddBlocks(collector, OfFrame(6, 1728), 1, 1727), nullptr);
  EXPECT_EQ(collector.Statistics().complete, 2U);
}

TEST(FrameCollector, TheSameFrameIdTwiceIsTwoFrames) {
  // A sensor whose second frame has the id 0 is published under 0 twice.
  FrameCollector collector;
  EXPECT_NE(AddBlocks(collector, OfFrame(0, 0), 0, 1727), nullptr);
  const CollectedFrame* second = AddBlocks(collector, OfFrame(0, 1728), 0, 1727);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->packets, 1728U);
  EXPECT_EQ(collector.Statistics().complete, 2U);
  EXPECT_EQ(collector.Statistics().late, 0U);
}

TEST(FrameCollector, AnotherPlanOrModeIsAnotherFrame) {
  FrameCollector collector;
  AddBlocks(collector, OfFrame(5, 0), 0, 3);
  PacketFields two_echoes = OfFrame(5, 0);
  two_echoes.marker = 1;
  ASSERT_NE(AddBlocks(collector, two_echoes, 0, 0), nullptr);
  PacketFields flags = two_echoes;
  flags.mode = 12;
  const CollectedFrame* closed = AddBlocks(collector, flags, 0, 0);
  ASSERT_NE(closed, nullptr);
  EXPECT_EQ(closed->key.echoes, 2);
  EXPECT_EQ(closed->key.output_mode, 0);
}

TEST(FrameCollector, AFirstFrameJoinedMidwayIsNotCalledIncomplete) {
  FrameCollector collector;
  AddBlocks(collector, OfFrame(5, 0), 700, 1727);
  const CollectedFrame* frame = AddBlocks(collector, OfFrame(6, 1728), 0, 0);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->joined_midway);
  EXPECT_EQ(frame->MissingBlocks(), 700);
  EXPECT_EQ(collector.Statistics().incomplete, 0U);
  // The next one has no such excuse.
  const CollectedFrame* next = AddBlocks(collector, OfFrame(7, 3456), 5, 5);
  ASSERT_NE(next, nullptr);
  EXPECT_FALSE(next->joined_midway);
  EXPECT_EQ(collector.Statistics().incomplete, 1U);
  EXPECT_EQ(collector.Statistics().missing_blocks, 1727U);
}

TEST(FrameCollector, TimestampsAreThoseOfTheFirstAndLastPacket) {
  FrameCollector collector;
  PacketFields fields = OfFrame(5, 0);
  fields.seconds = 100;
  fields.microseconds = 7;
  AddBlocks(collector, fields, 0, 0);
  fields.microseconds = 900;
  AddBlocks(collector, fields, 1, 1);
  const CollectedFrame* frame = collector.Flush();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->first_timestamp_us, 100000007);
  EXPECT_EQ(frame->last_timestamp_us, 100000900);
}

TEST(FrameCollector, EachMiniflashRowHasTheTimestampOfItsFirstPacket) {
  FrameCollector collector;
  PacketFields fields = OfFrame(3, 0);
  fields.seconds = 100;
  // The collector has two frames in turn: what the first one left may not stay for the third.
  for (int count = 0; count < 3; ++count) {
    fields.frame_id = 3 + count;
    fields.sequence_base = 1728 * static_cast<std::uint32_t>(count);
    fields.microseconds = 45000 * static_cast<std::uint32_t>(count);
    AddBlocks(collector, fields, 0, 0);
    // The second row, its first block again at last; of the third one nothing.
    for (const int block : {50, 49, 48, 48}) {
      fields.microseconds += 1000;
      AddBlocks(collector, fields, block, block);
    }
  }
  const CollectedFrame* frame = collector.Flush();
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->row_timestamp_us[0], 100090000);
  EXPECT_EQ(frame->row_timestamp_us[1], 100091000);
  EXPECT_EQ(frame->row_timestamp_us[2], 0);
  EXPECT_EQ(frame->row_timestamp_us[35], 0);
}

TEST(FrameCollector, AGivenFrameStaysUntilTheNextIsGiven) {
  FrameCollector collector;
  const CollectedFrame* frame = AddBlocks(collector, OfFrame(5, 0), 0, 1727);
  ASSERT_NE(frame, nullptr);
  PacketFields other = OfFrame(6, 1728);
  other.distance = 9;
  AddBlocks(collector, other, 0, 1726);
  EXPECT_EQ(frame->key.frame_id, 5);
  EXPECT_EQ(frame->At(0, 0, 0).distance, 250);
}

TEST(FrameCollector, ARestartForgetsTheFrameInHand) {
  FrameCollector collector;
  AddBlocks(collector, OfFrame(0, 0), 0, 1727);
  AddBlocks(collector, OfFrame(1, 1728), 0, 5);
  collector.Restart();
  EXPECT_EQ(collector.Flush(), nullptr);
  EXPECT_EQ(collector.Statistics().incomplete, 0U);
  // A restarted node begins with the very same key.
  EXPECT_NE(AddBlocks(collector, OfFrame(0, 0), 0, 1727), nullptr);
  EXPECT_EQ(collector.Statistics().late, 0U);
}

TEST(FrameCollector, FrameIdsThatArePassedOverAreTold) {
  FrameCollector collector;
  AddBlocks(collector, OfFrame(254, 0), 0, 1727);
  const CollectedFrame* frame = AddBlocks(collector, OfFrame(1, 1728), 0, 1727);
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->IsComplete());
  EXPECT_EQ(frame->missing_ids_before, 2) << "255 and 0";
  frame = AddBlocks(collector, OfFrame(2, 3456), 0, 1727);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->missing_ids_before, 0);
  EXPECT_EQ(collector.Statistics().missing_frame_ids, 2U);
  // Another node's ids have nothing to do with these.
  collector.Restart();
  AddBlocks(collector, OfFrame(90, 0), 0, 1727);
  EXPECT_EQ(collector.Statistics().missing_frame_ids, 2U);
}

TEST(FrameCollector, FlushOfNothingGivesNothing) {
  FrameCollector collector;
  EXPECT_EQ(collector.Flush(), nullptr);
  AddBlocks(collector, OfFrame(0, 0), 0, 1727);
  EXPECT_EQ(collector.Flush(), nullptr);
}

}  // namespace
}  // namespace kerul::lidar
