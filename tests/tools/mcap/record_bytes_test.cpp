#include "mcap/record_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "sample_file.h"

namespace kerul::lidar::mcap {
namespace {

using ::testing::ElementsAreArray;

template <class Record>
Bytes BytesOfRecord(const Record& record) {
  Bytes out;
  Append(record, out);
  return out;
}

// Two digits a byte; anything else parts them.
Bytes FromHex(const std::string& hex) {
  Bytes bytes;
  std::string digits;
  for (const char c : hex) {
    if (c != ' ') digits += c;
    if (digits.size() == 2) {
      bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits, nullptr, 16)));
      digits.clear();
    }
  }
  return bytes;
}

TEST(McapRecordBytes, AHeaderIsTwoStrings) {
  EXPECT_THAT(BytesOfRecord(Header{"ros2", "ab"}),
              ElementsAreArray(FromHex("01 0E 00 00 00 00 00 00 00"
                                       "04 00 00 00 72 6F 73 32  02 00 00 00 61 62")));
}

TEST(McapRecordBytes, AFooterHoldsTwoPlacesAndASum) {
  EXPECT_THAT(BytesOfRecord(Footer{0x0102030405060708, 0x1122, 0xA1B2C3D4}),
              ElementsAreArray(FromHex("02 14 00 00 00 00 00 00 00"
                                       "08 07 06 05 04 03 02 01  22 11 00 00 00 00 00 00"
                                       "D4 C3 B2 A1")));
}

TEST(McapRecordBytes, ASchemaEndsWithItsText) {
  EXPECT_THAT(BytesOfRecord(Schema{0x0201, "n", "ros2msg", "x"}),
              ElementsAreArray(FromHex("03 17 00 00 00 00 00 00 00"
                                       "01 02  01 00 00 00 6E"
                                       "07 00 00 00 72 6F 73 32 6D 73 67  01 00 00 00 78")));
}

// The map's length is that of its two strings: 4 + 1 + 4 + 2.
TEST(McapRecordBytes, AChannelsMapIsPrecededByTheBytesOfItsEntries) {
  EXPECT_THAT(BytesOfRecord(Channel{3, 4, "/t", "cdr", {{"k", "vw"}}}),
              ElementsAreArray(FromHex("04 20 00 00 00 00 00 00 00"
                                       "03 00 04 00  02 00 00 00 2F 74  03 00 00 00 63 64 72"
                                       "0B 00 00 00  01 00 00 00 6B  02 00 00 00 76 77")));
}

TEST(McapRecordBytes, AMessagesDataFollowItsHeadWithoutALength) {
  Bytes out;
  Append(MessageHeader{5, 6, 7, 8}, BytesOf("hi"), out);
  EXPECT_THAT(out, ElementsAreArray(FromHex("05 18 00 00 00 00 00 00 00"
                                            "05 00  06 00 00 00  07 00 00 00 00 00 00 00"
                                            "08 00 00 00 00 00 00 00  68 69")));
}

// 40 bytes of numbers, 8 of the name, and the 16 that are to follow.
TEST(McapRecordBytes, AChunksLengthCountsTheBytesThatFollowItsHead) {
  Bytes out;
  AppendHead(ChunkHeader{1, 2, 3, 4, "zstd", 16}, out);
  EXPECT_THAT(out, ElementsAreArray(FromHex("06 3C 00 00 00 00 00 00 00"
                                            "01 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00"
                                            "03 00 00 00 00 00 00 00  04 00 00 00"
                                            "04 00 00 00 7A 73 74 64  10 00 00 00 00 00 00 00")));
}

TEST(McapRecordBytes, AMessageIndexIsTimesAndOffsets) {
  EXPECT_THAT(BytesOfRecord(MessageIndex{9, {{1, 2}, {3, 4}}}),
              ElementsAreArray(FromHex("07 26 00 00 00 00 00 00 00  09 00  20 00 00 00"
                                       "01 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00"
                                       "03 00 00 00 00 00 00 00  04 00 00 00 00 00 00 00")));
}

TEST(McapRecordBytes, AChunkIndexTellsPlaceAndSizes) {
  ChunkIndex index{1, 2, 3, 4, {{7, 8}}, 9, "lz4", 10, 11};
  EXPECT_THAT(BytesOfRecord(index),
              ElementsAreArray(FromHex("08 4D 00 00 00 00 00 00 00"
                                       "01 00 00 00 00 00 00 00  02 00 00 00 00 00 00 00"
                                       "03 00 00 00 00 00 00 00  04 00 00 00 00 00 00 00"
                                       "0A 00 00 00  07 00 08 00 00 00 00 00 00 00"
                                       "09 00 00 00 00 00 00 00  03 00 00 00 6C 7A 34"
                                       "0A 00 00 00 00 00 00 00  0B 00 00 00 00 00 00 00")));
}

TEST(McapRecordBytes, StatisticsCountByKindAndByChannel) {
  const Statistics statistics{1, 2, 3, 4, 5, 6, 7, 8, {{9, 10}}};
  EXPECT_THAT(BytesOfRecord(statistics),
              ElementsAreArray(FromHex("0B 38 00 00 00 00 00 00 00"
                                       "01 00 00 00 00 00 00 00  02 00  03 00 00 00  04 00 00 00"
                                       "05 00 00 00  06 00 00 00  07 00 00 00 00 00 00 00"
                                       "08 00 00 00 00 00 00 00"
                                       "0A 00 00 00  09 00 0A 00 00 00 00 00 00 00")));
}

TEST(McapRecordBytes, ASummaryOffsetNamesTheKindOfItsRecords) {
  EXPECT_THAT(BytesOfRecord(SummaryOffset{Opcode::kChunkIndex, 1, 2}),
              ElementsAreArray(FromHex("0E 11 00 00 00 00 00 00 00"
                                       "08 01 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00")));
}

TEST(McapRecordBytes, TheEndOfTheDataIsASum) {
  EXPECT_THAT(BytesOfRecord(DataEnd{0x01020304}),
              ElementsAreArray(FromHex("0F 04 00 00 00 00 00 00 00  04 03 02 01")));
}

// The check value of this CRC in every list of them.
TEST(McapRecordBytes, TheSumIsTheOneOfEthernetAndGoesOn) {
  EXPECT_EQ(Crc32(0, BytesOf("123456789")), 0xCBF43926U);
  EXPECT_EQ(Crc32(Crc32(0, BytesOf("1234")), BytesOf("56789")), 0xCBF43926U);
}

}  // namespace
}  // namespace kerul::lidar::mcap
