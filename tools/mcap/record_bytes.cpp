#include "mcap/record_bytes.h"

#include <zlib.h>

#include <type_traits>

#include "mcap/record_fields.h"

namespace kerul::lidar::mcap {
namespace {

// Appends what it visits.
class Appender {
 public:
  explicit Appender(Bytes& out) : out_(out) {}

  template <class Field>
  void operator()(const Field& field) {
    if constexpr (std::is_enum_v<Field>) {
      PutInteger(static_cast<std::underlying_type_t<Field>>(field));
    } else if constexpr (std::is_integral_v<Field>) {
      PutInteger(field);
    } else {
      PutBlock(field);
    }
  }

  // Opcode and a length that Close fills in; gives the place for it.
  std::size_t Open(Opcode opcode) {
    (*this)(opcode);
    PutInteger(std::uint64_t{0});
    return out_.size();
  }
  void Close(std::size_t opened, std::uint64_t still_to_come = 0) {
    SetLength<std::uint64_t>(opened, still_to_come);
  }

 private:
  template <class Integer>
  void PutInteger(Integer value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
      out_.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
    }
  }
  // A string, or the pairs of an array or map, after the length of all of it.
  template <class Block>
  void PutBlock(const Block& block) {
    PutInteger(std::uint32_t{0});
    const std::size_t opened = out_.size();
    for (const auto& entry : block) PutEntry(entry);
    SetLength<std::uint32_t>(opened, 0);
  }
  void PutEntry(char character) { out_.push_back(static_cast<std::uint8_t>(character)); }
  template <class First, class Second>
  void PutEntry(const std::pair<First, Second>& entry) {
    (*this)(entry.first);
    (*this)(entry.second);
  }
  template <class Length>
  void SetLength(std::size_t opened, std::uint64_t still_to_come) {
    const std::uint64_t length = out_.size() - opened + still_to_come;
    for (std::size_t i = 0; i < sizeof(Length); ++i) {
      out_[opened - sizeof(Length) + i] = static_cast<std::uint8_t>(length >> (8 * i));
    }
  }

  Bytes& out_;
};

}  // namespace

template <class Record>
void Append(const Record& record, Bytes& out) {
  Appender appender(out);
  const std::size_t opened = appender.Open(Record::kOpcode);
  VisitFields(record, appender);
  appender.Close(opened);
}

template void Append(const Header&, Bytes&);
template void Append(const Footer&, Bytes&);
template void Append(const Schema&, Bytes&);
template void Append(const Channel&, Bytes&);
template void Append(const MessageIndex&, Bytes&);
template void Append(const ChunkIndex&, Bytes&);
template void Append(const Statistics&, Bytes&);
template void Append(const SummaryOffset&, Bytes&);
template void Append(const DataEnd&, Bytes&);

void Append(const MessageHeader& record, std::span<const std::uint8_t> data, Bytes& out) {
  Appender appender(out);
  const std::size_t opened = appender.Open(MessageHeader::kOpcode);
  VisitFields(record, appender);
  out.insert(out.end(), data.begin(), data.end());
  appender.Close(opened);
}

void AppendHead(const ChunkHeader& record, Bytes& out) {
  Appender appender(out);
  const std::size_t opened = appender.Open(ChunkHeader::kOpcode);
  VisitFields(record, appender);
  appender.Close(opened, record.stored_size);
}

std::uint32_t Crc32(std::uint32_t crc, std::span<const std::uint8_t> bytes) noexcept {
  return static_cast<std::uint32_t>(crc32_z(crc, bytes.data(), bytes.size()));
}

}  // namespace kerul::lidar::mcap
