#include "MIPI_reader/parser/raw_packet.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <utility>

#include "support/raw_packet_builder.h"

namespace kerul::lidar::testing {
namespace {

TEST(UnpackBlock, TwoSamplesShareThreeBytes) {
  std::uint8_t block[72] = {0xAB, 0xCD, 0x21};
  block[69] = 0xFF;
  block[70] = 0x00;
  block[71] = 0x0F;
  std::uint16_t samples[48];
  UnpackBlock(block, samples);
  EXPECT_EQ(samples[0], 0xAB1);
  EXPECT_EQ(samples[1], 0xCD2);
  EXPECT_EQ(samples[2], 0);
  EXPECT_EQ(samples[46], 0xFFF);
  EXPECT_EQ(samples[47], 0x000);
}

TEST(UnpackBlock, GivesBackWhatWasPacked) {
  std::mt19937 random(1);
  std::uniform_int_distribution<int> sample(0, 4095);
  int compared = 0;
  for (int round = 0; round < 100; ++round) {
    BlockSamples packed;
    for (std::uint16_t& value : packed) value = static_cast<std::uint16_t>(sample(random));
    std::uint8_t block[72];
    PackBlock(packed, block);
    BlockSamples unpacked;
    UnpackBlock(block, unpacked.data());
    EXPECT_EQ(unpacked, packed);
    ++compared;
  }
  EXPECT_EQ(compared, 100);
}

TEST(ReadRawPixel, JoinsTheSplitWords) {
  BlockSamples samples{};
  samples[1] = 1000;
  samples[2] = 4095;
  samples[3] = 431;
  samples[4] = 0xFFF;  // only the low four bits count: 16 bits in all
  samples[5] = 0x123;
  samples[6] = 0xFFF;  // only the low ten bits count: 22 bits in all
  samples[7] = 0x456;
  samples[8] = 0xFFF;  // only the low eleven bits count
  const auto pixel = ReadRawPixel(samples.data());
  EXPECT_EQ(pixel.peak_addr[0], 1000);
  EXPECT_EQ(pixel.peak_addr[1], 4095);
  EXPECT_EQ(pixel.pixel_id, 431);
  EXPECT_EQ(pixel.noise, 0xF123);
  EXPECT_EQ(pixel.pixel_word22, 0x3FF456U);
  EXPECT_EQ(pixel.pixel_word11, 0x7FFU);
}

TEST(PlacePixel, FirstAndLastPixelOfTheFrame) {
  const PixelPlace first = PlacePixel(0, 0, 0, 6, 6);
  EXPECT_EQ(first.row, 0);
  EXPECT_EQ(first.col, 0);
  const PixelPlace last = PlacePixel(431, 35, 3, 6, 6);
  EXPECT_EQ(last.row, 215);
  EXPECT_EQ(last.col, 287);
}

TEST(PlacePixel, StepsThroughColumnsRowsAndBlocks) {
  const PixelPlace next = PlacePixel(1, 0, 0, 6, 6);  // next of the dozen
  EXPECT_EQ(next.row, 0);
  EXPECT_EQ(next.col, 24);
  const PixelPlace dozen = PlacePixel(12, 0, 0, 6, 6);  // second dozen: one row down
  EXPECT_EQ(dozen.row, 1);
  EXPECT_EQ(dozen.col, 0);
  const PixelPlace third = PlacePixel(36, 0, 0, 6, 6);  // fourth dozen: one column on
  EXPECT_EQ(third.row, 0);
  EXPECT_EQ(third.col, 1);
  const PixelPlace down = PlacePixel(108, 0, 0, 6, 6);
  EXPECT_EQ(down.row, 3);
  EXPECT_EQ(down.col, 0);
  const PixelPlace right = PlacePixel(216, 2, 1, 6, 6);
  EXPECT_EQ(right.row, 12);
  EXPECT_EQ(right.col, 9);
}

TEST(PlacePixel, CoversEachPixelOfTheFrameOnce) {
  std::set<std::pair<int, int>> seen;
  for (int group = 0; group < 36; ++group) {
    for (int slot = 0; slot < 4; ++slot) {
      for (int id = 0; id < 432; ++id) {
        const PixelPlace place = PlacePixel(id, group, slot, 6, 6);
        ASSERT_TRUE(place.row >= 0 && place.row < 216 && place.col >= 0 && place.col < 288);
        ASSERT_EQ(place.row / 6, group);
        seen.insert({place.row, place.col});
      }
    }
  }
  EXPECT_EQ(seen.size(), 216U * 288U);
}

TEST(PixelIdOf, IsTheIdAmongTheUnpackedSamples) {
  std::mt19937 random(2);
  std::set<int> seen;
  for (int round = 0; round < 20000; ++round) {
    std::uint8_t block[72];
    for (std::uint8_t& byte : block) byte = static_cast<std::uint8_t>(random());
    std::uint16_t samples[48];
    UnpackBlock(block, samples);
    ASSERT_EQ(PixelIdOf(block), ReadRawPixel(samples).pixel_id);
    seen.insert(PixelIdOf(block));
  }
  EXPECT_GT(seen.size(), 3500U);
}

// Wild ids, groups and slots too. Code that cuts off at the frame's height and width relies on no
// place being negative.
TEST(PixelPlaceTable, AddsToTheFirstPixelOfAnyGroupAndSlot) {
  int compared = 0;
  for (int id = 0; id < kPixelIds; ++id) {
    for (const int group : {0, 1, 35, 36, 255}) {
      for (const int slot : {0, 3, 4, 255}) {
        const PixelPlace place = PlacePixel(id, group, slot, 6, 6);
        const std::int32_t offset = kPixelPlaces.offsets[id];
        ASSERT_EQ((offset & 0xFFFF) + group * 6, place.row) << id;
        ASSERT_EQ((offset >> 16) + slot * 6, place.col) << id;
        ASSERT_TRUE(place.row >= 0 && place.row < 1536 && place.col >= 0 && place.col < 1856) << id;
        ++compared;
      }
    }
  }
  EXPECT_EQ(compared, 4096 * 20);
}

TEST(TotalPacketId, CountsRowsSlotsRunsAndSubpackets) {
  RawHeader header{};
  EXPECT_EQ(TotalPacketId(header, 8), 0);
  header.group_id = 35;
  header.slot_id = 3;
  header.subpkt_id = 7;
  EXPECT_EQ(TotalPacketId(header, 431), 6911);
  header = {};
  header.group_id = 2;
  header.slot_id = 1;
  header.subpkt_id = 4;
  EXPECT_EQ(TotalPacketId(header, 71), 2 * 192 + 48 + 4);
  EXPECT_EQ(TotalPacketId(header, 72), 2 * 192 + 48 + 8 + 4);
}

TEST(ReadRawHeader, ReadsTheFixedOffsets) {
  std::uint8_t packet[692];
  for (int i = 0; i < 692; ++i) packet[i] = static_cast<std::uint8_t>(i % 251);
  const RawHeader header = ReadRawHeader(packet);
  EXPECT_EQ(header.ch_num, 12);
  EXPECT_EQ(header.packet_type, 13 + 256 * 14);
  EXPECT_EQ(header.scan_mode, 15);
  EXPECT_EQ(header.slot_id, 671 % 251);
  EXPECT_EQ(header.mipi_packet_id, 672 % 251);
  EXPECT_EQ(header.group_id, 673 % 251);
  EXPECT_EQ(header.subpkt_id, 674 % 251);
  EXPECT_EQ(header.frame_id, 675 % 251);
  EXPECT_EQ(header.frame_duration, 676 % 251 + 256 * (677 % 251));
  EXPECT_EQ(header.timestamp, 182U + 256U * 183U + 65536U * 184U + 16777216U * 185U);
  packet[688] = 0xFE;
  packet[689] = packet[690] = packet[691] = 0xFF;
  EXPECT_EQ(ReadRawHeader(packet).udp_sequence_num, -2);
}

}  // namespace
}  // namespace kerul::lidar::testing
