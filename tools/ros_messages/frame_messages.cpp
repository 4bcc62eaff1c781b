#include "ros_messages/frame_messages.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "kerul_lidar/point_payload.h"
#include "ros_messages/cdr_writer.h"
#include "ros_messages/message_types.h"

namespace kerul::lidar::ros {
namespace {

constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

void PutHeader(CdrWriter& cdr, const Frame& frame, const std::string& frame_id) {
  constexpr std::int64_t kMicroseconds = 1'000'000;  // in a second
  cdr.Put(static_cast<std::int32_t>(frame.first_timestamp_us / kMicroseconds));
  cdr.Put(static_cast<std::uint32_t>(frame.first_timestamp_us % kMicroseconds * 1000));
  cdr.PutString(frame_id);
}

void PutPointFields(CdrWriter& cdr) {
  cdr.Put(static_cast<std::uint32_t>(std::size(kCloudFields)));
  for (const CloudField& field : kCloudFields) {
    cdr.PutString(field.name);
    cdr.Put(field.offset);
    cdr.Put(static_cast<std::uint8_t>(field.type));
    cdr.Put(std::uint32_t{1});
  }
}

std::size_t PlaceOf(int echo, int row, int col) noexcept { return Frame::Index(echo, row, col); }

std::uint8_t IntensityAt(const Frame& frame, std::size_t place) noexcept {
  return PointIntensity(frame.output_mode,
                        &frame.payload[place * std::size_t{point_packet::kPayloadBytes}]);
}

bool IsReturn(const Frame& frame, int echo, std::size_t place) noexcept {
  return echo < frame.echoes && frame.range_m[place] > 0.0F;
}

// Seconds from the frame's stamp to the row's first packet. Negative when the clock was set back.
float RowTime(const Frame& frame, int row) noexcept {
  const std::int64_t at = frame.row_timestamp_us[static_cast<std::size_t>(row / kBlockPixels)];
  if (at == 0) return 0.0F;
  return static_cast<float>(static_cast<double>(at - frame.first_timestamp_us) * 1e-6);
}

CloudPoint MakePoint(const Frame& frame, int echo, int row, int col, bool masked) noexcept {
  CloudPoint point{};
  point.x = point.y = point.z = kNone;
  point.row = static_cast<std::uint16_t>(row);
  point.col = static_cast<std::uint16_t>(col);
  point.echo = static_cast<std::uint8_t>(echo);
  point.time = RowTime(frame, row);
  const std::size_t place = PlaceOf(echo, row, col);
  if (masked || echo >= frame.echoes) return point;
  point.flags = frame.flags[place];
  if (!IsReturn(frame, echo, place)) return point;
  point.range = frame.range_m[place];
  point.intensity = IntensityAt(frame, place);
  if (frame.HasPoints()) {
    point.x = frame.x_m[place];
    point.y = frame.y_m[place];
    point.z = frame.z_m[place];
  }
  return point;
}

}  // namespace

FrameMessages::FrameMessages(const MessageOptions& options) : options_(options) {
  for (int row = kFrameRows - 1; row >= 0; --row) {
    if (row % options_.every_row != 0) continue;
    ++lines_;
    columns_ = 0;
    for (int col = 0; col < kFrameCols; col += options_.every_col) {
      ++columns_;
      const bool masked = options_.masked[static_cast<std::size_t>(row * kFrameCols + col)];
      pixels_.push_back({static_cast<std::uint16_t>(row), static_cast<std::uint16_t>(col), masked});
    }
  }
}

FrameMessages::Echoes FrameMessages::EchoesOf(const Frame& frame) const noexcept {
  switch (options_.echoes) {
    case EchoChoice::kFirst:
      return {0, 1};
    case EchoChoice::kSecond:
      return {1, 1};
    case EchoChoice::kBoth:
      break;
  }
  return {0, frame.echoes};
}

bool FrameMessages::IsInCloud(const Frame& frame, int echo, const Pixel& pixel) const noexcept {
  if (!options_.valid_only) return true;
  const std::size_t place = PlaceOf(echo, pixel.row, pixel.col);
  return !pixel.masked && frame.HasPoints() && IsReturn(frame, echo, place) &&
         !std::isnan(frame.x_m[place]);
}

void FrameMessages::WriteCloud(const Frame& frame, std::vector<std::uint8_t>& message) const {
  const Echoes echoes = EchoesOf(frame);
  std::uint32_t count = 0;
  for (int echo = echoes.first; echo < echoes.first + echoes.count; ++echo) {
    for (const Pixel& pixel : pixels_) count += IsInCloud(frame, echo, pixel) ? 1U : 0U;
  }
  const std::uint32_t height =
      options_.valid_only ? 1 : lines_ * static_cast<std::uint32_t>(echoes.count);
  const std::uint32_t width = options_.valid_only ? count : columns_;

  CdrWriter cdr(message);
  PutHeader(cdr, frame, options_.frame_id);
  cdr.Put(height);
  cdr.Put(width);
  PutPointFields(cdr);
  constexpr bool kBigEndian = false;
  cdr.Put(std::uint8_t{kBigEndian});
  constexpr auto kPointStep = std::uint32_t{sizeof(CloudPoint)};
  cdr.Put(kPointStep);
  cdr.Put(kPointStep * width);
  cdr.Put(kPointStep * count);
  std::uint8_t* to = cdr.Room(std::size_t{kPointStep} * count);
  for (int echo = echoes.first; echo < echoes.first + echoes.count; ++echo) {
    for (const Pixel& pixel : pixels_) {
      if (!IsInCloud(frame, echo, pixel)) continue;
      const CloudPoint point = MakePoint(frame, echo, pixel.row, pixel.col, pixel.masked);
      std::memcpy(to, &point, sizeof(point));
      to += sizeof(point);
    }
  }
  const bool is_dense = options_.valid_only;
  cdr.Put(std::uint8_t{is_dense});
}

template <class Value, class ValueAt>
void FrameMessages::WriteImage(const Frame& frame, std::string_view encoding, Value none,
                               ValueAt value_at, std::vector<std::uint8_t>& message) const {
  const Echoes echoes = EchoesOf(frame);
  const std::uint32_t height = lines_ * static_cast<std::uint32_t>(echoes.count);
  CdrWriter cdr(message);
  PutHeader(cdr, frame, options_.frame_id);
  cdr.Put(height);
  cdr.Put(columns_);
  cdr.PutString(encoding);
  constexpr bool kBigEndian = false;
  cdr.Put(std::uint8_t{kBigEndian});
  const std::uint32_t step = columns_ * std::uint32_t{sizeof(Value)};  // bytes of a line
  cdr.Put(step);
  cdr.Put(step * height);
  std::uint8_t* to = cdr.Room(std::size_t{step} * height);
  for (int echo = echoes.first; echo < echoes.first + echoes.count; ++echo) {
    for (const Pixel& pixel : pixels_) {
      const std::size_t place = PlaceOf(echo, pixel.row, pixel.col);
      const bool shown = !pixel.masked && IsReturn(frame, echo, place);
      const Value value = shown ? value_at(place) : none;
      std::memcpy(to, &value, sizeof(value));
      to += sizeof(value);
    }
  }
}

void FrameMessages::WriteRangeImage(const Frame& frame, std::vector<std::uint8_t>& message) const {
  const auto range = [&](std::size_t place) { return frame.range_m[place]; };
  WriteImage(frame, "32FC1", kNone, range, message);
}

void FrameMessages::WriteReflectivityImage(const Frame& frame,
                                           std::vector<std::uint8_t>& message) const {
  const auto intensity = [&](std::size_t place) { return IntensityAt(frame, place); };
  WriteImage(frame, "mono8", std::uint8_t{0}, intensity, message);
}

}  // namespace kerul::lidar::ros
