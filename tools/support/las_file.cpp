#include "support/las_file.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <unordered_map>

#include "support/byte_output.h"

namespace kerul::lidar {
namespace {

constexpr std::uint16_t kHeaderBytes = 227;
constexpr std::uint16_t kRecordBytes = 28;
constexpr std::size_t kTextBytes = 32;
constexpr double kScale = 0.001;  // metres in a step
constexpr double kStepsPerMetre = 1000.0;
constexpr std::uint8_t kNeverClassified = 0;
constexpr std::uint8_t kUnclassified = 1;
constexpr std::uint8_t kGround = 2;
constexpr int kReturns = 5;  // that the header counts
// Points' times are standard GPS time less 1e9 s, which this bit tells.
constexpr std::uint16_t kStandardGpsTime = 1;
constexpr double kGpsEpochUnixSeconds = 315964800.0;
constexpr double kLeapSeconds = 18.0;  // GPS time is ahead of UTC by these, since 2017
constexpr double kGpsTimeOffset = 1e9;

using Steps = std::array<std::int32_t, 3>;

// False for a point that the format cannot hold.
bool ToSteps(const CloudPoint& point, Steps& steps) {
  constexpr double kMost = std::numeric_limits<std::int32_t>::max();
  const float coordinates[] = {point.x, point.y, point.z};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const double rounded = std::round(static_cast<double>(coordinates[i]) * kStepsPerMetre);
    if (!(std::abs(rounded) <= kMost)) return false;
    steps[i] = static_cast<std::int32_t>(rounded);
  }
  return true;
}

// How many returns a pixel has, by its highest echo.
class PixelReturns {
 public:
  explicit PixelReturns(std::span<const CloudPoint> points) {
    for (const CloudPoint& point : points) {
      if (point.echo == 0) continue;
      std::uint8_t& returns = later_[Place(point)];
      returns = std::max(returns, NumberOf(point));
    }
  }
  std::uint8_t Of(const CloudPoint& point) const {
    const auto found = later_.find(Place(point));
    return found == later_.end() ? std::uint8_t{1} : found->second;
  }
  static std::uint8_t NumberOf(const CloudPoint& point) {
    return static_cast<std::uint8_t>(std::min(point.echo + 1, kReturns));
  }

 private:
  static std::uint32_t Place(const CloudPoint& point) {
    return std::uint32_t{point.row} << 16 | point.col;
  }

  std::unordered_map<std::uint32_t, std::uint8_t> later_;  // pixels with more than the first echo
};

struct Totals {
  std::uint32_t points = 0;
  std::array<std::uint32_t, kReturns> by_return{};
  Steps lowest{};
  Steps highest{};

  void Take(const Steps& steps, std::uint8_t return_number) {
    for (std::size_t i = 0; i < steps.size(); ++i) {
      lowest[i] = points == 0 ? steps[i] : std::min(lowest[i], steps[i]);
      highest[i] = points == 0 ? steps[i] : std::max(highest[i], steps[i]);
    }
    ++points;
    ++by_return[return_number - 1U];
  }
};

std::uint16_t Intensity(float intensity) {
  constexpr float kMost = 65535.0F;
  const float scaled = std::round(intensity * 256.0F);
  return scaled > 0.0F ? static_cast<std::uint16_t>(std::min(scaled, kMost)) : std::uint16_t{0};
}

double GpsTime(std::int64_t timestamp_us) {
  if (timestamp_us == 0) return 0.0;
  const double unix_seconds = static_cast<double>(timestamp_us) / 1e6;
  return unix_seconds - kGpsEpochUnixSeconds + kLeapSeconds - kGpsTimeOffset;
}

char* PutText(char* at, const char* text) {
  std::memset(at, 0, kTextBytes);
  std::memcpy(at, text, std::min(std::strlen(text), kTextBytes));
  return at + kTextBytes;
}

// Day of the year and year, in UTC.
char* PutDate(char* at, std::int64_t timestamp_us) {
  if (timestamp_us == 0) return PutNumber(PutNumber(at, std::uint16_t{0}), std::uint16_t{0});
  using namespace std::chrono;
  const auto day = floor<days>(sys_time<microseconds>(microseconds(timestamp_us)));
  const year_month_day date(day);
  const auto day_of_year = (day - sys_days(date.year() / January / 1)).count() + 1;
  at = PutNumber(at, static_cast<std::uint16_t>(day_of_year));
  return PutNumber(at, static_cast<std::uint16_t>(static_cast<int>(date.year())));
}

void PutHeader(char* at, const Totals& totals, const LasOptions& options) {
  std::memcpy(at, "LASF", 4);
  at = PutNumber(at + 4, std::uint16_t{0});  // of no flight line
  at = PutNumber(at, options.timestamp_us == 0 ? std::uint16_t{0} : kStandardGpsTime);
  std::memset(at, 0, 16);  // no project id
  at = PutNumber(PutNumber(at + 16, std::uint8_t{1}), std::uint8_t{2});
  at = PutText(at, "kerul lidar");
  at = PutText(at, "kerul_lidar_node");
  at = PutDate(at, options.timestamp_us);
  at = PutNumber(at, kHeaderBytes);
  at = PutNumber(at, std::uint32_t{kHeaderBytes});  // where the points begin
  at = PutNumber(at, std::uint32_t{0});             // records of variable length
  at = PutNumber(PutNumber(at, std::uint8_t{1}), kRecordBytes);
  at = PutNumber(at, totals.points);
  for (const std::uint32_t count : totals.by_return) at = PutNumber(at, count);
  for (int i = 0; i < 3; ++i) at = PutNumber(at, kScale);
  for (int i = 0; i < 3; ++i) at = PutNumber(at, 0.0);  // offset
  for (std::size_t i = 0; i < totals.lowest.size(); ++i) {
    at = PutNumber(at, totals.highest[i] * kScale);
    at = PutNumber(at, totals.lowest[i] * kScale);
  }
}

}  // namespace

std::vector<char> EncodeLas(std::span<const CloudPoint> points, const LasOptions& options) {
  std::vector<char> bytes(kHeaderBytes + points.size() * kRecordBytes);
  const PixelReturns returns(points);
  const double gps_time = GpsTime(options.timestamp_us);
  Totals totals;
  char* at = bytes.data() + kHeaderBytes;
  for (const CloudPoint& point : points) {
    Steps steps;
    if (!ToSteps(point, steps)) continue;
    const std::uint8_t number = PixelReturns::NumberOf(point);
    totals.Take(steps, number);
    for (const std::int32_t step : steps) at = PutNumber(at, step);
    at = PutNumber(at, Intensity(point.intensity));
    at = PutNumber(at, static_cast<std::uint8_t>(number | returns.Of(point) << 3));
    const std::uint8_t known = point.ground != 0 ? kGround : kUnclassified;
    at = PutNumber(at, options.ground_known ? known : kNeverClassified);
    at = PutNumber(at, std::int8_t{0});    // scan angle
    at = PutNumber(at, std::uint8_t{0});   // user data
    at = PutNumber(at, std::uint16_t{0});  // point source
    at = PutNumber(at, gps_time);
  }
  bytes.resize(static_cast<std::size_t>(at - bytes.data()));
  PutHeader(bytes.data(), totals, options);
  return bytes;
}

}  // namespace kerul::lidar
