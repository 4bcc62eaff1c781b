#include "ros_messages/cloud_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "ros_messages/cdr_writer.h"

namespace kerul::lidar::ros {
namespace {

// Takes values from the front. After the first that does not fit, all are zero or empty.
class CdrReader {
 public:
  explicit CdrReader(std::span<const std::uint8_t> body) : body_(body) {
    static_assert(std::endian::native == std::endian::little);
  }

  bool Sound() const noexcept { return sound_; }
  template <class Number>
  Number Take() {
    const std::size_t misaligned = at_ % sizeof(Number);
    Bytes(misaligned == 0 ? 0 : sizeof(Number) - misaligned);
    const auto bytes = Bytes(sizeof(Number));
    Number value{};
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }
  // Without the zero that ends it.
  std::string TakeString() {
    const auto bytes = TakeBytes();
    if (bytes.empty()) return {};
    return {bytes.begin(), bytes.end() - 1};
  }
  std::span<const std::uint8_t> TakeBytes() { return Bytes(Take<std::uint32_t>()); }

 private:
  std::span<const std::uint8_t> Bytes(std::size_t count) {
    if (count > body_.size() - at_) sound_ = false;
    if (!sound_) return {};
    at_ += count;
    return body_.subspan(at_ - count, count);
  }

  std::span<const std::uint8_t> body_;
  std::size_t at_ = 0;
  bool sound_ = true;
};

// Bytes of the types of sensor_msgs/msg/PointField, by number; 0 is no type.
constexpr std::array<std::uint8_t, 9> kTypeBytes{0, 1, 1, 2, 2, 4, 4, 4, 8};

template <class Number>
double Load(const std::uint8_t* bytes) noexcept {
  Number value{};
  std::memcpy(&value, bytes, sizeof value);
  return static_cast<double>(value);
}

// Every point inside the data.
bool Fits(const CloudView& cloud) {
  if (cloud.PointCount() == 0) return true;
  const std::uint64_t line = std::uint64_t{cloud.width} * cloud.point_step;
  return cloud.point_step > 0 && line <= cloud.row_step &&
         std::uint64_t{cloud.height} * cloud.row_step <= cloud.data.size();
}

}  // namespace

bool ParseCloud(std::span<const std::uint8_t> message, CloudView& cloud, std::string& error) {
  if (message.size() < kEncapsulationBytes || message[0] != 0 || message[1] != 1) {
    error = "the message is not little-endian CDR";
    return false;
  }
  CdrReader cdr(message.subspan(kEncapsulationBytes));
  cloud.stamp_sec = cdr.Take<std::int32_t>();
  cloud.stamp_nanosec = cdr.Take<std::uint32_t>();
  cloud.frame_id = cdr.TakeString();
  cloud.height = cdr.Take<std::uint32_t>();
  cloud.width = cdr.Take<std::uint32_t>();
  cloud.fields.clear();
  for (std::uint32_t left = cdr.Take<std::uint32_t>(); left > 0 && cdr.Sound(); --left) {
    NamedField& field = cloud.fields.emplace_back();
    field.name = cdr.TakeString();
    field.offset = cdr.Take<std::uint32_t>();
    field.datatype = cdr.Take<std::uint8_t>();
    field.count = cdr.Take<std::uint32_t>();
  }
  const bool is_big_endian = cdr.Take<std::uint8_t>() != 0;
  cloud.point_step = cdr.Take<std::uint32_t>();
  cloud.row_step = cdr.Take<std::uint32_t>();
  cloud.data = cdr.TakeBytes();
  cloud.is_dense = cdr.Take<std::uint8_t>() != 0;
  if (!cdr.Sound()) {
    error = "the message is too short";
  } else if (is_big_endian) {
    error = "the points are big-endian";
  } else if (!Fits(cloud)) {
    error = "the points do not fit into the data";
  } else {
    return true;
  }
  return false;
}

FieldColumn::FieldColumn(const CloudView& cloud, const char* name) : cloud_(cloud) {
  const auto field = std::find_if(cloud.fields.begin(), cloud.fields.end(),
                                  [&](const NamedField& one) { return one.name == name; });
  if (field == cloud.fields.end() || field->count == 0) return;
  if (field->datatype >= kTypeBytes.size() || kTypeBytes[field->datatype] == 0) return;
  const std::uint64_t end = std::uint64_t{field->offset} + kTypeBytes[field->datatype];
  if (end > cloud.point_step) return;
  offset_ = field->offset;
  datatype_ = field->datatype;
}

double FieldColumn::At(std::uint64_t index) const noexcept {
  if (!IsThere()) return 0.0;
  const std::uint64_t at =
      index / cloud_.width * cloud_.row_step + index % cloud_.width * cloud_.point_step + offset_;
  const std::uint8_t* bytes = cloud_.data.data() + at;
  switch (datatype_) {
    case 1:
      return Load<std::int8_t>(bytes);
    case 2:
      return Load<std::uint8_t>(bytes);
    case 3:
      return Load<std::int16_t>(bytes);
    case 4:
      return Load<std::uint16_t>(bytes);
    case 5:
      return Load<std::int32_t>(bytes);
    case 6:
      return Load<std::uint32_t>(bytes);
    case 7:
      return Load<float>(bytes);
    default:
      return Load<double>(bytes);
  }
}

}  // namespace kerul::lidar::ros
