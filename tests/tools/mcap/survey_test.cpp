#include "mcap/survey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mcap/message_search.h"
#include "mcap/record_bytes.h"
#include "sample_file.h"

namespace kerul::lidar::mcap {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

Survey SurveyOf(const std::string& file, const ReadLimits& limits = {}) {
  MemorySource source(BytesOf(file));
  Survey survey;
  std::string error;
  EXPECT_TRUE(MakeSurvey(source, limits, survey, error)) << error;
  return survey;
}

// Message `number` of the sample's channel, or the reason why not.
std::string MessageOf(const std::string& file, std::uint64_t number) {
  MemorySource source(BytesOf(file));
  FoundMessage found;
  std::string error;
  const ChannelFilter is_text = [](const Schema& schema, const Channel&) {
    return schema.name == "a/msg/Text";
  };
  if (!FindMessage(source, {}, is_text, number, found, error)) return error;
  EXPECT_EQ(found.channel.topic, "/text");
  EXPECT_EQ(found.header.sequence, number);
  return TextOf(found.data);
}

constexpr Compression kAll[] = {Compression::kNone, Compression::kLz4, Compression::kZstd};

TEST(McapSurvey, ASoundFileIsCountedAndHasNoDamage) {
  for (const Compression compression : kAll) {
    const std::string file = SampleFile(compression);
    const Survey survey = SurveyOf(file);
    EXPECT_TRUE(survey.finished);
    EXPECT_EQ(survey.header.profile, "ros2");
    EXPECT_EQ(survey.header.library, "a library");
    EXPECT_EQ(survey.schemas.at(1).data, "string data");
    EXPECT_EQ(survey.channels.at(1).topic, "/text");
    EXPECT_THAT(survey.message_counts, ElementsAre(std::pair(1, 3U)));
    EXPECT_EQ(survey.start_time_ns, 1000U);
    EXPECT_EQ(survey.end_time_ns, 1002U);
    EXPECT_EQ(survey.file_bytes, file.size());
    EXPECT_EQ(survey.sound_chunks, 3U);
    EXPECT_EQ(survey.damaged_chunks, 0U);
    EXPECT_TRUE(survey.damages.empty());
    const PackedBytes& packed = survey.chunks.at(CompressionName(compression));
    EXPECT_EQ(packed.chunks, 3U);
    EXPECT_EQ(packed.plain, 3U * 631U);
  }
}

// Every byte is in the CRC of a chunk, of the data section or of the summary, or it is a length or
// the magic, without which the walk goes astray.
TEST(McapSurvey, AFlippedByteIsToldWhereverItStands) {
  int flipped = 0;
  for (const Compression compression : kAll) {
    const std::string file = SampleFile(compression);
    for (std::size_t at = 8; at < file.size(); ++at) {
      std::string damaged = file;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
      const Survey survey = SurveyOf(damaged);
      EXPECT_TRUE(!survey.damages.empty() || !survey.finished) << at << " of " << file.size();
      ++flipped;
    }
  }
  EXPECT_GT(flipped, 3000);
}

TEST(McapSurvey, AFlippedByteOfAChunkDamagesThatChunkAlone) {
  for (const Compression compression : kAll) {
    std::string file = SampleFile(compression);
    const std::size_t second =
        file.find("message 1", 0) != std::string::npos ? file.find("message 1") : std::string::npos;
    ASSERT_NE(second, std::string::npos) << "the text begins as it is in every compression";
    file[second] = 'M';
    const Survey survey = SurveyOf(file);
    EXPECT_EQ(survey.damaged_chunks, 1U);
    EXPECT_EQ(survey.sound_chunks, 2U);
    EXPECT_EQ(survey.messages, 2U);
    ASSERT_EQ(survey.damages.size(), 2U);
    EXPECT_THAT(survey.damages[0].what, HasSubstr("damaged chunk: "));
    EXPECT_EQ(survey.damages[1].what, "the CRC of the data section does not match");
    EXPECT_EQ(MessageOf(file, 0), SampleText(0));
    EXPECT_THAT(MessageOf(file, 1), HasSubstr("it stands in a damaged chunk: "));
    EXPECT_EQ(MessageOf(file, 2), SampleText(2)) << "keeps its number";
  }
}

// However a file is cut, all chunks before the cut can be read.
TEST(McapSurvey, ACutFileGivesEveryChunkThatIsWhole) {
  const std::string file = SampleFile(Compression::kZstd, false);
  std::vector<std::size_t> ends;  // of the chunk records
  MemorySource source(BytesOf(file));
  FileWalk walk(source);
  std::string error;
  ASSERT_TRUE(walk.Begin(error));
  RecordPlace place;
  while (walk.Next(place)) {
    if (place.opcode == Opcode::kChunk) ends.push_back(place.End());
  }
  ASSERT_EQ(ends.size(), 3U);
  std::size_t cuts = 0;
  for (std::size_t size = 8; size <= file.size(); ++size) {
    const std::string cut = file.substr(0, size);
    const auto whole = static_cast<std::uint64_t>(
        std::count_if(ends.begin(), ends.end(), [&](std::size_t end) { return end <= size; }));
    const Survey survey = SurveyOf(cut);
    EXPECT_FALSE(survey.finished);
    EXPECT_EQ(survey.messages, whole) << size;
    EXPECT_TRUE(survey.damages.empty());
    for (std::uint64_t i = 0; i < whole; ++i) EXPECT_EQ(MessageOf(cut, i), SampleText(int(i)));
    EXPECT_EQ(MessageOf(cut, whole), "there are only " + std::to_string(whole));
    MemorySource cut_source(BytesOf(cut));
    FileEnd end;
    ASSERT_TRUE(FindFileEnd(cut_source, end, error));
    EXPECT_FALSE(end.finished);
    EXPECT_EQ(end.whole_chunks, whole);
    ++cuts;
  }
  EXPECT_GT(cuts, 400U);
}

TEST(McapSurvey, TheEndOfAFinishedFileIsFound) {
  const std::string file = SampleFile(Compression::kLz4);
  MemorySource source(BytesOf(file));
  FileEnd end;
  std::string error;
  ASSERT_TRUE(FindFileEnd(source, end, error));
  EXPECT_TRUE(end.finished);
  EXPECT_EQ(end.whole_chunks, 3U);
}

TEST(McapSurvey, OtherFilesAreRefused) {
  for (const std::string file : {"", "\x89MCAP", "\x89MCAP1\r\n", "#rosbag V2.0\nxxxx"}) {
    MemorySource source(BytesOf(file));
    Survey survey;
    std::string error;
    EXPECT_FALSE(MakeSurvey(source, {}, survey, error));
    EXPECT_EQ(error, "it is not an MCAP file");
  }
}

TEST(McapSurvey, AChunkBeyondTheLimitIsDamageAndTheNextOnesAreRead) {
  const std::string file = SampleFile(Compression::kZstd);
  const Survey survey = SurveyOf(file, {.plain_bytes = 630});
  EXPECT_EQ(survey.damaged_chunks, 3U);
  EXPECT_EQ(survey.damages[0].what, "damaged chunk: it holds more than 630 bytes");
  EXPECT_TRUE(survey.finished);
  EXPECT_EQ(SurveyOf(file, {.plain_bytes = 631}).damaged_chunks, 0U);
  const Survey short_records = SurveyOf(file, {.record_bytes = 60});
  EXPECT_EQ(short_records.damaged_chunks, 3U);
  EXPECT_EQ(short_records.damages.back().what, "damaged chunk: it is longer than 60 bytes");
}

TEST(McapSurvey, SchemasBeyondTheLimitAreNotKept) {
  const Survey survey = SurveyOf(SampleFile(Compression::kNone), {.description_bytes = 40});
  EXPECT_TRUE(survey.channels.empty() || survey.schemas.empty());
  EXPECT_FALSE(survey.damages.empty());
}

// As other programs write it: channels inside the chunk with the messages, with or without an
// index.
std::string ForeignFile(bool with_index) {
  Bytes records;
  Append(Schema{1, "a/msg/Text", "ros2msg", ""}, records);
  Append(Channel{4, 1, "/text", "cdr", {}}, records);
  Append(Channel{5, 0, "/other", "json", {}}, records);
  Append(MessageHeader{5, 0, 0, 0}, BytesOf("not this"), records);
  Append(MessageHeader{4, 0, 0, 0}, BytesOf("first"), records);
  Append(MessageHeader{4, 1, 0, 0}, BytesOf("second"), records);
  Bytes file(kMagic.begin(), kMagic.end());
  Append(Header{}, file);
  AppendHead(ChunkHeader{0, 0, records.size(), 0, "", records.size()}, file);
  file.insert(file.end(), records.begin(), records.end());
  if (with_index) {
    Append(MessageIndex{4, {{0, 0}, {0, 0}}}, file);
    Append(MessageIndex{5, {{0, 0}}}, file);
  }
  return TextOf(file);
}

TEST(McapMessageSearch, ChannelsAndMessagesInsideAChunkAreFound) {
  for (const bool with_index : {false, true}) {
    const std::string file = ForeignFile(with_index);
    EXPECT_EQ(MessageOf(file, 0), "first");
    EXPECT_EQ(MessageOf(file, 1), "second");
    EXPECT_EQ(MessageOf(file, 2), "there are only 2");
  }
}

TEST(McapMessageSearch, EveryMessageOfASampleIsFoundByItsNumber) {
  for (const Compression compression : kAll) {
    const std::string file = SampleFile(compression);
    for (int i = 0; i < kSampleChunks; ++i) {
      EXPECT_EQ(MessageOf(file, static_cast<std::uint64_t>(i)), SampleText(i));
    }
    EXPECT_EQ(MessageOf(file, 3), "there are only 3");
  }
}

}  // namespace
}  // namespace kerul::lidar::mcap
