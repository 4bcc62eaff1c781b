#include "mcap/record_parser.h"

#include <gtest/gtest.h>

#include "mcap/record_bytes.h"
#include "sample_file.h"

namespace kerul::lidar::mcap {
namespace {

// Takes each cut of the content for short, gives the whole one, and gives the same bytes again.
template <class Record>
void ExpectWholeOnly(const Record& record) {
  Bytes bytes;
  Append(record, bytes);
  const std::span<const std::uint8_t> content = std::span(bytes).subspan(kRecordHeaderBytes);
  Record parsed;
  std::size_t refused = 0;
  for (std::size_t size = 0; size < content.size(); ++size) {
    if (!Parse(content.first(size), parsed)) ++refused;
  }
  EXPECT_EQ(refused, content.size());
  ASSERT_TRUE(Parse(content, parsed));
  Bytes again;
  Append(parsed, again);
  EXPECT_EQ(again, bytes);
  bytes.push_back(0);
  EXPECT_TRUE(Parse(std::span(bytes).subspan(kRecordHeaderBytes), parsed)) << "a later field";
}

TEST(McapRecordParser, RecordsComeBackAsTheyWereAndNoneFromFewerBytes) {
  ExpectWholeOnly(Header{"ros2", "library"});
  ExpectWholeOnly(Footer{1, 2, 3});
  ExpectWholeOnly(Schema{1, "name", "ros2msg", "data"});
  ExpectWholeOnly(Channel{1, 2, "/topic", "cdr", {{"a", "b"}, {"c", ""}}});
  ExpectWholeOnly(MessageIndex{1, {{2, 3}, {4, 5}}});
  ExpectWholeOnly(ChunkIndex{1, 2, 3, 4, {{5, 6}, {7, 8}}, 9, "zstd", 10, 11});
  ExpectWholeOnly(Statistics{1, 2, 3, 4, 5, 6, 7, 8, {{9, 10}, {11, 12}}});
  ExpectWholeOnly(SummaryOffset{Opcode::kChannel, 1, 2});
  ExpectWholeOnly(DataEnd{1});
}

TEST(McapRecordParser, AMapWhoseLengthEndsInsideAnEntryIsRefused) {
  Bytes bytes;
  Append(ChunkIndex{1, 2, 3, 4, {{5, 6}}, 9, "", 10, 11}, bytes);
  constexpr std::size_t kMapLengthAt = kRecordHeaderBytes + 32;
  ASSERT_EQ(bytes[kMapLengthAt], 10);
  bytes[kMapLengthAt] = 9;
  ChunkIndex parsed;
  EXPECT_FALSE(Parse(std::span(bytes).subspan(kRecordHeaderBytes), parsed));
}

// The map's length, 16 bytes, follows two ids, the topic and the encoding.
TEST(McapRecordParser, AChannelWhoseMapEndsInsideAStringIsRefused) {
  Bytes bytes;
  Append(Channel{1, 2, "/t", "cdr", {{"key", "value"}}}, bytes);
  constexpr std::size_t kMapLengthAt = kRecordHeaderBytes + 4 + 6 + 7;
  ASSERT_EQ(bytes[kMapLengthAt], 16);
  bytes[kMapLengthAt] = 15;
  Channel parsed;
  EXPECT_FALSE(Parse(std::span(bytes).subspan(kRecordHeaderBytes), parsed));
}

TEST(McapRecordParser, AMessageIndexWhoseArrayEndsInsideAnEntryIsRefused) {
  Bytes bytes;
  Append(MessageIndex{1, {{2, 3}}}, bytes);
  constexpr std::size_t kArrayLengthAt = kRecordHeaderBytes + 2;
  ASSERT_EQ(bytes[kArrayLengthAt], 16);
  bytes[kArrayLengthAt] = 15;
  MessageIndex parsed;
  EXPECT_FALSE(Parse(std::span(bytes).subspan(kRecordHeaderBytes), parsed));
}

TEST(McapRecordParser, AMessagesDataAreTheRestOfIt) {
  Bytes bytes;
  Append(MessageHeader{1, 2, 3, 4}, BytesOf("data"), bytes);
  const std::span<const std::uint8_t> content = std::span(bytes).subspan(kRecordHeaderBytes);
  MessageHeader header;
  std::span<const std::uint8_t> data;
  ASSERT_TRUE(Parse(content, header, data));
  EXPECT_EQ(header.channel_id, 1);
  EXPECT_EQ(header.sequence, 2U);
  EXPECT_EQ(header.log_time_ns, 3U);
  EXPECT_EQ(header.publish_time_ns, 4U);
  EXPECT_EQ(TextOf(data), "data");
  EXPECT_FALSE(Parse(content.first(kMessageHeaderBytes - 1), header, data));
}

TEST(McapRecordParser, AChunkHoldsAsManyStoredBytesAsItSays) {
  Bytes bytes;
  AppendHead(ChunkHeader{1, 2, 3, 4, "lz4", 5}, bytes);
  for (const std::uint8_t byte : BytesOf("12345")) bytes.push_back(byte);
  const std::span<const std::uint8_t> content = std::span(bytes).subspan(kRecordHeaderBytes);
  ChunkHeader header;
  std::span<const std::uint8_t> stored;
  ASSERT_TRUE(Parse(content, header, stored));
  EXPECT_EQ(header.compression, "lz4");
  EXPECT_EQ(header.plain_crc, 4U);
  EXPECT_EQ(TextOf(stored), "12345");
  EXPECT_FALSE(Parse(content.first(content.size() - 1), header, stored));
}

TEST(McapRecordParser, ACursorStopsBeforeARecordThatReachesBeyondTheEnd) {
  Bytes bytes;
  Append(Header{"a", "b"}, bytes);
  Append(DataEnd{7}, bytes);
  Opcode opcode{};
  std::span<const std::uint8_t> content;
  RecordCursor whole(bytes);
  ASSERT_TRUE(whole.Next(opcode, content));
  EXPECT_EQ(opcode, Opcode::kHeader);
  EXPECT_EQ(content.size(), 10U);
  ASSERT_TRUE(whole.Next(opcode, content));
  EXPECT_EQ(opcode, Opcode::kDataEnd);
  EXPECT_FALSE(whole.Next(opcode, content));
  EXPECT_EQ(whole.Left(), 0U);

  bytes.pop_back();
  RecordCursor cut(bytes);
  ASSERT_TRUE(cut.Next(opcode, content));
  EXPECT_FALSE(cut.Next(opcode, content));
  EXPECT_EQ(cut.Left(), 12U);
}

}  // namespace
}  // namespace kerul::lidar::mcap
