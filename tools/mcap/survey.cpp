#include "mcap/survey.h"

#include <algorithm>
#include <array>

#include "mcap/record_bytes.h"
#include "mcap/record_parser.h"

namespace kerul::lidar::mcap {
namespace {

constexpr std::size_t kMostDamages = 100;
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

// One walk through a file.
class Surveyor {
 public:
  Surveyor(ByteSource& source, const ReadLimits& limits, Survey& survey)
      : source_(source),
        walk_(source, limits),
        survey_(survey),
        description_room_(limits.description_bytes) {}

  bool Run(std::string& error) {
    if (!walk_.Begin(error)) return false;
    survey_.file_bytes = source_.Size();
    AddToSum(0, walk_.Position());
    RecordPlace place;
    while (walk_.Next(place)) TakePlace(place);
    survey_.finished = walk_.Finished();
    if (!survey_.finished) survey_.unread_bytes = source_.Size() - walk_.Position();
    return true;
  }

 private:
  void Note(std::uint64_t at, const std::string& what) {
    if (survey_.damages.size() < kMostDamages) {
      survey_.damages.push_back({at, what});
    } else {
      ++survey_.further_damages;
    }
  }

  // Bytes from `at` up to `end` go into the running CRC.
  void AddToSum(std::uint64_t at, std::uint64_t end) {
    Bytes piece;
    while (at < end) {
      piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kPieceBytes, end - at)));
      if (!source_.Read(at, piece)) return Note(at, "it cannot be read");
      sum_ = Crc32(sum_, piece);
      at += piece.size();
    }
  }

  void TakePlace(const RecordPlace& place) {
    std::string error;
    switch (place.opcode) {
      case Opcode::kDataEnd:
        TakeDataEnd(place);
        return;  // what follows has a sum of its own
      case Opcode::kFooter:
        TakeFooter(place);
        return;
      case Opcode::kChunk:
        TakeChunk(place);
        break;
      case Opcode::kHeader:
      case Opcode::kSchema:
      case Opcode::kChannel:
      case Opcode::kMessage:
        if (!walk_.Read(place, content_, error)) {
          Note(place.at, error);
        } else {
          TakeRecord(place.opcode, content_, place.at);
        }
        break;
      default:
        break;
    }
    AddToSum(place.at, place.End());
  }

  void TakeChunk(const RecordPlace& place) {
    ChunkHeader header;
    std::string error;
    if (!walk_.ReadChunk(place, header, content_, error)) {
      ++survey_.damaged_chunks;
      Note(place.at, "damaged chunk: " + error);
      return;
    }
    ++survey_.sound_chunks;
    PackedBytes& packed = survey_.chunks[header.compression];
    ++packed.chunks;
    packed.stored += header.stored_size;
    packed.plain += header.plain_size;
    RecordCursor cursor(content_);
    Opcode opcode{};
    std::span<const std::uint8_t> content;
    while (cursor.Next(opcode, content)) TakeRecord(opcode, content, place.at);
    if (cursor.Left() != 0) Note(place.at, "a record of the chunk reaches beyond its end");
  }

  void TakeRecord(Opcode opcode, std::span<const std::uint8_t> content, std::uint64_t at) {
    bool sound = true;
    if (opcode == Opcode::kHeader) {
      sound = Parse(content, survey_.header);
    } else if (opcode == Opcode::kSchema) {
      Schema schema;
      sound = Parse(content, schema) && Keep(content.size(), schema, survey_.schemas);
    } else if (opcode == Opcode::kChannel) {
      Channel channel;
      sound = Parse(content, channel) && Keep(content.size(), channel, survey_.channels);
    } else if (opcode == Opcode::kMessage) {
      MessageHeader message;
      std::span<const std::uint8_t> data;
      sound = Parse(content, message, data);
      if (sound) Count(message);
    }
    if (!sound) Note(at, "a record is shorter than its lengths say, or too long");
  }

  template <class Record>
  bool Keep(std::size_t bytes, const Record& record, std::map<std::uint16_t, Record>& records) {
    if (records.contains(record.id)) return true;  // the summary repeats them
    if (bytes > description_room_) return false;
    description_room_ -= bytes;
    records.emplace(record.id, record);
    return true;
  }

  void Count(const MessageHeader& message) {
    const std::uint64_t time = message.log_time_ns;
    const bool first = survey_.messages == 0;
    survey_.start_time_ns = first ? time : std::min(survey_.start_time_ns, time);
    survey_.end_time_ns = std::max(survey_.end_time_ns, time);
    ++survey_.messages;
    ++survey_.message_counts[message.channel_id];
  }

  void TakeDataEnd(const RecordPlace& place) {
    std::string error;
    DataEnd end;
    if (!walk_.Read(place, content_, error) || !Parse(content_, end)) {
      Note(place.at, "the end of the data cannot be read");
    } else if (end.data_crc != 0 && end.data_crc != sum_) {
      Note(place.at, "the CRC of the data section does not match");
    }
    sum_ = 0;
  }

  void TakeFooter(const RecordPlace& place) {
    std::string error;
    Footer footer;
    if (!walk_.Read(place, content_, error) || !Parse(content_, footer)) {
      return Note(place.at, "the footer cannot be read");
    }
    AddToSum(place.at, place.ContentAt() + kFooterBytes - sizeof footer.summary_crc);
    if (footer.summary_crc != 0 && footer.summary_crc != sum_) {
      Note(place.at, "the CRC of the summary does not match");
    }
  }

  ByteSource& source_;
  FileWalk walk_;
  Survey& survey_;
  Bytes content_;
  std::uint32_t sum_ = 0;
  std::uint64_t description_room_;
};

}  // namespace

bool MakeSurvey(ByteSource& source, const ReadLimits& limits, Survey& survey, std::string& error) {
  survey = Survey();
  return Surveyor(source, limits, survey).Run(error);
}

bool IsFinished(ByteSource& source) {
  std::array<std::uint8_t, kRecordHeaderBytes + kFooterBytes + kMagic.size()> end{};
  if (source.Size() < end.size() || !source.Read(source.Size() - end.size(), end)) return false;
  const auto head = ParseHead(end);
  return head && head->opcode == Opcode::kFooter && head->content_bytes == kFooterBytes &&
         std::equal(kMagic.begin(), kMagic.end(), end.end() - kMagic.size());
}

bool FindFileEnd(ByteSource& source, FileEnd& end, std::string& error) {
  FileWalk walk(source);
  end = FileEnd();
  if (!walk.Begin(error)) return false;
  RecordPlace place;
  while (walk.Next(place)) {
    if (place.opcode == Opcode::kChunk) ++end.whole_chunks;
  }
  end.finished = walk.Finished();
  return true;
}

}  // namespace kerul::lidar::mcap
