#include "mcap/record_parser.h"

#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "mcap/record_fields.h"

namespace kerul::lidar::mcap {
namespace {

// Fills what it visits from the front of its bytes. After the first field that does not fit, all
// are zero or empty.
class Filler {
 public:
  explicit Filler(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  bool Sound() const noexcept { return sound_; }
  std::span<const std::uint8_t> Rest() const noexcept { return rest_; }

  template <class Field>
  void operator()(Field& field) {
    if constexpr (std::is_enum_v<Field>) {
      field = static_cast<Field>(TakeInteger<std::underlying_type_t<Field>>());
    } else if constexpr (std::is_integral_v<Field>) {
      field = TakeInteger<Field>();
    } else if constexpr (std::is_same_v<Field, std::string>) {
      const auto bytes = TakeBytes(TakeInteger<std::uint32_t>());
      field.assign(bytes.begin(), bytes.end());
    } else {
      FillPairs(field);
    }
  }
  std::span<const std::uint8_t> TakeBytes(std::uint64_t count) {
    if (count > rest_.size()) sound_ = false;
    if (!sound_) {
      rest_ = {};
      return {};
    }
    const auto taken = rest_.first(static_cast<std::size_t>(count));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

 private:
  template <class Integer>
  Integer TakeInteger() {
    std::uint64_t sum = 0;
    int shift = 0;
    for (const std::uint8_t byte : TakeBytes(sizeof(Integer))) {
      sum |= std::uint64_t{byte} << shift;
      shift += 8;
    }
    return static_cast<Integer>(sum);
  }
  template <class First, class Second>
  static void Insert(std::pair<First, Second>&& entry,
                     std::vector<std::pair<First, Second>>& into) {
    into.push_back(std::move(entry));
  }
  // Of a key that comes twice, the later value counts.
  template <class First, class Second>
  static void Insert(std::pair<First, Second>&& entry, std::map<First, Second>& into) {
    into.insert_or_assign(entry.first, std::move(entry.second));
  }
  template <class Pairs>
  void FillPairs(Pairs& pairs) {
    Filler entries(TakeBytes(TakeInteger<std::uint32_t>()));
    pairs.clear();
    while (!entries.rest_.empty()) {
      std::pair<std::remove_const_t<typename Pairs::value_type::first_type>,
                typename Pairs::value_type::second_type>
          entry;
      entries(entry.first);
      entries(entry.second);
      if (entries.sound_) Insert(std::move(entry), pairs);
    }
    sound_ = sound_ && entries.sound_;
  }

  std::span<const std::uint8_t> rest_;
  bool sound_ = true;
};

}  // namespace

template <class Record>
bool Parse(std::span<const std::uint8_t> content, Record& record) {
  Filler filler(content);
  VisitFields(record, filler);
  return filler.Sound();
}

template bool Parse(std::span<const std::uint8_t>, Header&);
template bool Parse(std::span<const std::uint8_t>, Footer&);
template bool Parse(std::span<const std::uint8_t>, Schema&);
template bool Parse(std::span<const std::uint8_t>, Channel&);
template bool Parse(std::span<const std::uint8_t>, MessageIndex&);
template bool Parse(std::span<const std::uint8_t>, ChunkIndex&);
template bool Parse(std::span<const std::uint8_t>, Statistics&);
template bool Parse(std::span<const std::uint8_t>, SummaryOffset&);
template bool Parse(std::span<const std::uint8_t>, DataEnd&);

bool Parse(std::span<const std::uint8_t> content, MessageHeader& record,
           std::span<const std::uint8_t>& data) {
  Filler filler(content);
  VisitFields(record, filler);
  data = filler.Rest();
  return filler.Sound();
}

bool Parse(std::span<const std::uint8_t> content, ChunkHeader& record,
           std::span<const std::uint8_t>& stored) {
  Filler filler(content);
  VisitFields(record, filler);
  stored = filler.TakeBytes(record.stored_size);
  return filler.Sound();
}

std::optional<RecordHead> ParseHead(std::span<const std::uint8_t> bytes) {
  Filler filler(bytes);
  RecordHead head;
  filler(head.opcode);
  filler(head.content_bytes);
  if (!filler.Sound()) return std::nullopt;
  return head;
}

bool RecordCursor::Next(Opcode& opcode, std::span<const std::uint8_t>& content) {
  const auto head = ParseHead(rest_);
  if (!head) return false;
  const auto after = rest_.subspan(kRecordHeaderBytes);
  if (head->content_bytes > after.size()) return false;
  opcode = head->opcode;
  content = after.first(static_cast<std::size_t>(head->content_bytes));
  rest_ = after.subspan(content.size());
  return true;
}

}  // namespace kerul::lidar::mcap
