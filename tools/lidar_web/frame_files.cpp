#include "lidar_web/frame_files.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "kerul_lidar/frame_collector.h"
#include "kerul_lidar/point_payload.h"
#include "lidar_view/picture.h"
#include "lidar_view/view_points.h"
#include "support/las_file.h"
#include "support/png_file.h"
#include "support/point_files.h"

namespace kerul::lidar::web {
namespace {

// A mode without a name: its first payload byte is a brightness of unknown meaning.
constexpr int kBrightnessMode = 255;

// A message's planes; flags are 0 where there are none.
class Planes {
 public:
  Planes(const FrameHeader& header, std::span<const char> message)
      : count_(header.PointCount()),
        has_flags_((header.planes & kFlagsPlane) != 0),
        range_(message.data() + kFrameHeaderBytes),
        reflectivity_(range_ + 2 * count_),
        flags_(reflectivity_ + count_) {}

  std::uint16_t Range(std::size_t i) const noexcept { return Word(range_ + 2 * i); }
  std::uint8_t Reflectivity(std::size_t i) const noexcept {
    return static_cast<std::uint8_t>(reflectivity_[i]);
  }
  std::uint16_t Flags(std::size_t i) const noexcept {
    return has_flags_ ? Word(flags_ + 2 * i) : std::uint16_t{0};
  }

 private:
  static std::uint16_t Word(const char* at) noexcept {
    std::uint16_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
  }

  std::size_t count_;
  bool has_flags_;
  const char* range_;
  const char* reflectivity_;
  const char* flags_;
};

// The frame as if it had been published in mode 12, which carries what the planes do.
CollectedFrame Collect(const FrameHeader& header, const Planes& planes) {
  const bool is_reflectivity = (header.carries & payload_field::kReflectivity) != 0;
  CollectedFrame frame;
  frame.key.frame_id = header.frame_id;
  frame.key.echoes = header.echoes;
  frame.key.output_mode = is_reflectivity ? static_cast<int>(OutputMode::kFlags) : kBrightnessMode;
  frame.unit_mm = header.unit_mm;
  for (std::size_t i = 0; i < header.PointCount(); ++i) {
    const std::uint16_t flags = planes.Flags(i);
    frame.points[i].distance = planes.Range(i);
    frame.points[i].payload = {planes.Reflectivity(i), static_cast<std::uint8_t>(flags),
                               static_cast<std::uint8_t>(flags >> 8)};
  }
  return frame;
}

bool KnowsGround(const FrameHeader& header) {
  return (header.planes & kFlagsPlane) != 0 &&
         ((header.known_flags >> point_flag::kGround) & 1) != 0;
}

// 0 for what is no time.
std::int64_t TimestampUs(double time_us) {
  constexpr double kYear3000Us = 3.25e16;
  return time_us > 0.0 && time_us < kYear3000Us ? static_cast<std::int64_t>(time_us) : 0;
}

class JsonWriter {
 public:
  void Text(const char* text) { text_.insert(text_.end(), text, text + std::strlen(text)); }
  void Number(double value, int decimals) {
    char digits[64];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, decimals);
    text_.insert(text_.end(), digits, end.ptr);
  }
  void Member(const char* name, double value) {
    Text(name);
    Number(value, 0);
  }
  std::vector<char> Take() && { return std::move(text_); }

 private:
  std::vector<char> text_;
};

std::vector<char> EncodeJson(const FrameHeader& header, const Planes& planes,
                             std::span<const CloudPoint> points) {
  constexpr int kMillimetres = 3;
  JsonWriter json;
  json.Member("{\"frame_id\":", header.frame_id);
  json.Member(",\"serial\":", header.serial);
  json.Member(",\"output_mode\":", header.output_mode);
  json.Member(",\"return_code\":", header.return_code);
  json.Member(",\"echoes\":", header.echoes);
  json.Member(",\"first_us\":", static_cast<double>(TimestampUs(header.first_us)));
  json.Member(",\"last_us\":", static_cast<double>(TimestampUs(header.last_us)));
  json.Member(",\"missing_blocks\":", header.missing_blocks);
  json.Member(",\"known_flags\":", header.known_flags);
  json.Text(
      ",\"columns\":[\"echo\",\"row\",\"col\",\"range_m\",\"x_m\",\"y_m\",\"z_m\","
      "\"reflectivity\",\"flags\"],\"points\":[");
  const char* separator = "[";
  for (const CloudPoint& point : points) {
    const std::size_t place = CollectedFrame::Index(point.echo, point.row, point.col);
    json.Member(separator, point.echo);
    json.Member(",", point.row);
    json.Member(",", point.col);
    for (const double metres : {planes.Range(place) * header.unit_mm / 1000.0, double{point.x},
                                double{point.y}, double{point.z}}) {
      json.Text(",");
      json.Number(metres, kMillimetres);
    }
    json.Member(",", planes.Reflectivity(place));
    json.Member(",", planes.Flags(place));
    separator = "],\n[";
  }
  json.Text(points.empty() ? "]}\n" : "]]}\n");
  return std::move(json).Take();
}

}  // namespace

bool MakeFrameFile(const FrameHeader& header, std::span<const char> message,
                   const ViewGeometry& geometry, FileFormat format, bool floats,
                   std::vector<char>& file, std::string& error) {
  const Planes planes(header, message);
  const CollectedFrame frame = Collect(header, planes);
  const std::vector<CloudPoint> points =
      view::MakeViewPoints(frame, geometry.directions, geometry.Mount());
  switch (format) {
    case FileFormat::kPng: {
      const view::Canvas picture = view::DrawPicture(frame, points, view::PictureOptions{});
      return EncodePng(picture.width, picture.height, picture.rgb, file, error);
    }
    case FileFormat::kPcd:
      file = EncodePcd(points, PointFields::kPixelAndEcho,
                       floats ? PcdNumbers::kFloats : PcdNumbers::kPacked);
      return true;
    case FileFormat::kPly:
      file = EncodePly(points, PointFields::kPixelAndEcho);
      return true;
    case FileFormat::kLas:
      file = EncodeLas(points, {.ground_known = KnowsGround(header),
                                .timestamp_us = TimestampUs(header.last_us)});
      return true;
    case FileFormat::kJson:
      file = EncodeJson(header, planes, points);
      return true;
  }
  return false;
}

}  // namespace kerul::lidar::web
