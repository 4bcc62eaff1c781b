#include "mcap/file_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <filesystem>

#include "mcap/record_bytes.h"
#include "mcap/record_parser.h"
#include "mcap/survey.h"
#include "tools/mcap/sample_file.h"
#include "tools/mcap/size_limit.h"

namespace kerul::lidar::mcap {
namespace {

using ::testing::ElementsAre;

struct Record {
  Opcode opcode;
  std::uint64_t at;
  std::uint64_t bytes;
};

// All records of a file in memory, magic apart.
std::vector<Record> RecordsOf(const std::string& file) {
  std::vector<Record> records;
  RecordCursor cursor(BytesOf(file).subspan(8, file.size() - 16));
  Opcode opcode{};
  std::span<const std::uint8_t> content;
  std::uint64_t at = 8;
  while (cursor.Next(opcode, content)) {
    records.push_back({opcode, at, content.size() + 9});
    at += content.size() + 9;
  }
  EXPECT_EQ(cursor.Left(), 0U);
  return records;
}

std::span<const std::uint8_t> ContentOf(const std::string& file, const Record& record) {
  return BytesOf(file).subspan(record.at + 9, record.bytes - 9);
}

TEST(McapFileWriter, SchemaAndChannelStandBeforeTheChunksAndAgainInTheSummary) {
  const std::string file = SampleFile(Compression::kZstd);
  EXPECT_EQ(file.substr(0, 8), "\x89MCAP0\r\n");
  EXPECT_EQ(file.substr(file.size() - 8), "\x89MCAP0\r\n");
  std::vector<Opcode> opcodes;
  for (const Record& record : RecordsOf(file)) opcodes.push_back(record.opcode);
  using enum Opcode;
  EXPECT_THAT(opcodes,
              ElementsAre(kHeader, kSchema, kChannel, kChunk, kMessageIndex, kChunk, kMessageIndex,
                          kChunk, kMessageIndex, kDataEnd, kSchema, kChannel, kStatistics,
                          kChunkIndex, kChunkIndex, kChunkIndex, kSummaryOffset, kSummaryOffset,
                          kSummaryOffset, kSummaryOffset, kFooter));
}

TEST(McapFileWriter, TheChunkIndexLeadsToChunkAndMessageIndex) {
  const std::string file = SampleFile(Compression::kLz4);
  const std::vector<Record> records = RecordsOf(file);
  for (std::size_t i = 0; i < kSampleChunks; ++i) {
    const Record& chunk = records[3 + 2 * i];
    const Record& message_index = records[4 + 2 * i];
    ChunkIndex index;
    ASSERT_TRUE(Parse(ContentOf(file, records[13 + i]), index));
    EXPECT_EQ(index.chunk_start, chunk.at);
    EXPECT_EQ(index.chunk_length, chunk.bytes);
    EXPECT_THAT(index.message_index_offsets, ElementsAre(std::pair(1, message_index.at)));
    EXPECT_EQ(index.message_index_length, message_index.bytes);
    EXPECT_EQ(index.compression, "lz4");
    EXPECT_EQ(index.plain_size, 9U + 22U + 600U);
    EXPECT_EQ(index.stored_size, chunk.bytes - 9U - 40U - 3U);
    EXPECT_EQ(index.start_time_ns, 1000U + i);
    EXPECT_EQ(index.end_time_ns, 1000U + i);
  }
}

TEST(McapFileWriter, StatisticsCountWhatWasWritten) {
  const std::string file = SampleFile(Compression::kNone);
  Statistics statistics;
  ASSERT_TRUE(Parse(ContentOf(file, RecordsOf(file)[12]), statistics));
  EXPECT_EQ(statistics.message_count, 3U);
  EXPECT_EQ(statistics.schema_count, 1U);
  EXPECT_EQ(statistics.channel_count, 1U);
  EXPECT_EQ(statistics.chunk_count, 3U);
  EXPECT_EQ(statistics.start_time_ns, 1000U);
  EXPECT_EQ(statistics.end_time_ns, 1002U);
  EXPECT_THAT(statistics.channel_message_counts, ElementsAre(std::pair(1, 3U)));
}

TEST(McapFileWriter, TheFooterLeadsToTheSummaryAndItsOffsets) {
  const std::string file = SampleFile(Compression::kNone);
  const std::vector<Record> records = RecordsOf(file);
  Footer footer;
  ASSERT_TRUE(Parse(ContentOf(file, records.back()), footer));
  EXPECT_EQ(footer.summary_start, records[10].at);
  EXPECT_EQ(footer.summary_offset_start, records[16].at);
  const std::size_t first_of_group[] = {10, 11, 12, 13};
  for (std::size_t i = 0; i < 4; ++i) {
    SummaryOffset offset;
    ASSERT_TRUE(Parse(ContentOf(file, records[16 + i]), offset));
    EXPECT_EQ(offset.opcode, records[first_of_group[i]].opcode);
    EXPECT_EQ(offset.start, records[first_of_group[i]].at);
    const std::size_t next = i == 3 ? 16 : first_of_group[i + 1];
    EXPECT_EQ(offset.length, records[next].at - offset.start);
  }
}

// Over the file's bytes as they are, apart from the writer's own running sums.
TEST(McapFileWriter, BothSumsAreThoseOfTheBytesBeforeThem) {
  const std::string file = SampleFile(Compression::kZstd);
  const std::vector<Record> records = RecordsOf(file);
  DataEnd end;
  ASSERT_TRUE(Parse(ContentOf(file, records[9]), end));
  EXPECT_EQ(end.data_crc, Crc32(0, BytesOf(file).first(records[9].at)));
  Footer footer;
  ASSERT_TRUE(Parse(ContentOf(file, records.back()), footer));
  const std::uint64_t begin = records[10].at;
  EXPECT_EQ(footer.summary_crc,
            Crc32(0, BytesOf(file).subspan(begin, records.back().at + 9 + 16 - begin)));
}

TEST(McapFileWriter, AChunkKeepsTheTimesAndPlacesOfItsMessages) {
  ChunkBuilder builder(Compression::kNone, 0);
  EXPECT_TRUE(builder.Empty());
  builder.Add({2, 0, 50, 0}, BytesOf("ab"));
  builder.Add({1, 0, 30, 0}, BytesOf("c"));
  builder.Add({2, 1, 40, 0}, BytesOf(""));
  const Chunk chunk = builder.Finish();
  EXPECT_TRUE(builder.Empty());
  EXPECT_EQ(chunk.index.start_time_ns, 30U);
  EXPECT_EQ(chunk.index.end_time_ns, 50U);
  EXPECT_THAT(chunk.message_counts, ElementsAre(std::pair(1, 1U), std::pair(2, 2U)));
  RecordCursor cursor(chunk.bytes);
  Opcode opcode{};
  std::span<const std::uint8_t> content;
  MessageIndex first;
  MessageIndex second;
  ASSERT_TRUE(cursor.Next(opcode, content));
  ASSERT_TRUE(cursor.Next(opcode, content) && Parse(content, first));
  ASSERT_TRUE(cursor.Next(opcode, content) && Parse(content, second));
  EXPECT_EQ(first.channel_id, 1);
  ASSERT_EQ(first.entries.size(), 1U);
  EXPECT_EQ(first.entries[0].second, 33U);
  EXPECT_EQ(second.channel_id, 2);
  ASSERT_EQ(second.entries.size(), 2U);
  EXPECT_EQ(second.entries[1].first, 40U);
  EXPECT_EQ(second.entries[1].second, 33U + 32U);
}

TEST(McapFileWriter, AFileThatIsThereIsNotTouched) {
  const testing::TempDir folder;
  const std::string path = folder.Write("a.mcap", std::string("mine"));
  FileWriter writer;
  EXPECT_FALSE(writer.Create(path, SampleDescription()));
  EXPECT_EQ(writer.Error(), "File exists");
  EXPECT_EQ(folder.Read("a.mcap"), "mine");
}

TEST(McapFileWriter, AFileIsLockedWhileItIsWritten) {
  const testing::TempDir folder;
  const std::string path = folder.File("a.mcap");
  FileWriter writer;
  ASSERT_TRUE(writer.Create(path, SampleDescription()));
  FileSource source;
  std::string error;
  ASSERT_TRUE(source.Open(path, error)) << error;
  EXPECT_TRUE(source.IsLocked());
  ASSERT_TRUE(writer.Finish());
  EXPECT_FALSE(source.IsLocked());
}

struct FullDisk {
  std::string path;
  std::uint64_t after_two;  // bytes of the file after two chunks
};

// Writes chunks of 600 bytes until `room` bytes after the second one are used up. The writer is
// then left with the third one refused.
FullDisk FillDisk(const testing::TempDir& folder, FileWriter& writer, std::uint64_t room) {
  FullDisk disk{folder.File("a.mcap"), 0};
  ChunkBuilder builder(Compression::kNone, 0);
  EXPECT_TRUE(writer.Create(disk.path, SampleDescription()));
  EXPECT_TRUE(writer.Write(SampleChunk(builder, 0)));
  EXPECT_TRUE(writer.Write(SampleChunk(builder, 1)));
  disk.after_two = writer.Size();
  const SizeLimit limit(disk.after_two + room);
  EXPECT_FALSE(writer.Write(SampleChunk(builder, 2)));
  EXPECT_EQ(writer.Error(), "File too large");
  EXPECT_EQ(std::filesystem::file_size(disk.path), disk.after_two);
  EXPECT_EQ(writer.Chunks(), 2U);
  return disk;
}

TEST(McapFileWriter, AFullDiskCutsTheFileBackToItsLastWholeChunkAndFinishesIt) {
  const testing::TempDir folder;
  FileWriter writer;
  const FullDisk disk = FillDisk(folder, writer, 300);
  ASSERT_TRUE(writer.Finish());
  FileSource source;
  Survey survey;
  std::string error;
  ASSERT_TRUE(source.Open(disk.path, error) && MakeSurvey(source, {}, survey, error)) << error;
  EXPECT_TRUE(survey.finished);
  EXPECT_EQ(survey.messages, 2U);
  EXPECT_TRUE(survey.damages.empty());
}

TEST(McapFileWriter, AFileWithoutRoomForItsIndexEndsWithItsLastWholeChunk) {
  const testing::TempDir folder;
  FileWriter writer;
  const FullDisk disk = FillDisk(folder, writer, 300);
  {
    const SizeLimit limit(disk.after_two + 300);
    EXPECT_FALSE(writer.Finish());
  }
  EXPECT_EQ(writer.Error(), "File too large");
  EXPECT_EQ(std::filesystem::file_size(disk.path), disk.after_two);
  FileSource source;
  Survey survey;
  std::string error;
  ASSERT_TRUE(source.Open(disk.path, error) && MakeSurvey(source, {}, survey, error)) << error;
  EXPECT_FALSE(survey.finished);
  EXPECT_EQ(survey.messages, 2U);
  EXPECT_EQ(survey.unread_bytes, 0U);
}

TEST(McapFileWriter, AFileWhoseBeginningDoesNotFitIsNotLeft) {
  const testing::TempDir folder;
  FileWriter writer;
  const SizeLimit limit(20);
  EXPECT_FALSE(writer.Create(folder.File("a.mcap"), SampleDescription()));
  EXPECT_EQ(writer.Error(), "File too large");
  EXPECT_FALSE(std::filesystem::exists(folder.File("a.mcap")));
}

}  // namespace
}  // namespace kerul::lidar::mcap
