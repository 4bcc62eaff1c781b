#include "lidar_web/story_maker.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <optional>

#include "kerul_lidar/frame.h"
#include "kerul_lidar/frame_collector.h"
#include "lidar_web/limited_process.h"

namespace kerul::lidar::web {
namespace {

constexpr int kFrameNotFound = 2;  // pixel_story's exit status
constexpr int kNotFound = 404;
constexpr int kUnavailable = 503;
constexpr std::size_t kPage = 0;  // pixel_story's results
constexpr std::size_t kPackets = 1;

void Refuse(FileJob& job, int status, std::string error) {
  job.status = status;
  job.error = std::move(error);
}

bool IsTime(double us) { return us > 0.0 && us < 4e15; }  // also false for what is no number

std::vector<std::string> CommandOf(const StorySource& source, const FileJob& job) {
  const auto seconds = [](double us) { return std::to_string(us / 1e6); };
  const FrameHeader& frame = job.header;
  return {source.program, source.captures,
          "--calib",      source.calib_dir,
          "--frame-id",   std::to_string(frame.frame_id),
          "--time",       seconds(frame.first_us) + "," + seconds(frame.last_us),
          "--pixel",      std::to_string(job.row) + "," + std::to_string(job.col),
          "--html",       ResultPath(kPage),
          "--packets",    ResultPath(kPackets)};
}

// The frame as a reader of the stream would have had it.
std::optional<FrameMessage> FrameOf(const std::vector<char>& packets) {
  FrameCollector collector;
  const CollectedFrame* collected = nullptr;
  for (std::size_t at = 0; at < packets.size() && collected == nullptr; at += kPointPacketBytes) {
    PointPacketView view;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(packets.data() + at);
    if (view.Parse(bytes, std::min<std::size_t>(kPointPacketBytes, packets.size() - at)) !=
        PointPacketError::kNone) {
      return std::nullopt;
    }
    collected = collector.Add(view);
  }
  if (collected == nullptr) collected = collector.Flush();
  if (collected == nullptr) return std::nullopt;
  Frame frame;
  FillFrame(*collected, nullptr, nullptr, frame);
  FrameMessage message;
  EncodeFrame(frame, 0, 0.0, 0, message);
  return message;
}

// Planes of a message; without flags the message ends before them.
struct Planes {
  Planes(std::span<const char> message, const FrameHeader& header)
      : range(message.data() + kFrameHeaderBytes),
        reflectivity(range + 2 * header.PointCount()),
        flags(reflectivity + header.PointCount()) {}
  const char* range;
  const char* reflectivity;
  const char* flags;
};

// How many points the page shows that the story's frame does not have; all, if they are not frames
// of one kind.
class Comparison {
 public:
  Comparison(const FileJob& job, const FrameMessage& told)
      : shown_header_(job.header),
        told_header_(told.header),
        shown_(job.Message(), job.header),
        told_(told.View(), told.header),
        pixel_(static_cast<std::size_t>(job.row) * kFrameCols + static_cast<std::size_t>(job.col)) {
  }

  std::size_t OtherPoints() const {
    if (!AreOfOneKind()) return shown_header_.PointCount();
    std::size_t others = 0;
    for (std::size_t i = 0; i < shown_header_.PointCount(); ++i) {
      others += MustBeThere(i) && !IsSame(i) ? 1 : 0;
    }
    return others;
  }

 private:
  bool AreOfOneKind() const {
    return shown_header_.frame_id == told_header_.frame_id &&
           shown_header_.echoes == told_header_.echoes &&
           shown_header_.unit_mm == told_header_.unit_mm &&
           shown_header_.return_code == told_header_.return_code &&
           shown_header_.output_mode == told_header_.output_mode;
  }
  // What did not come to the server reads as no return.
  bool MustBeThere(std::size_t i) const {
    return shown_header_.missing_blocks == 0 || i % kPixels == pixel_ || shown_.range[2 * i] != 0 ||
           shown_.range[2 * i + 1] != 0;
  }
  bool IsSame(std::size_t i) const {
    const bool has_flags = (shown_header_.planes & kFlagsPlane) != 0;
    return std::memcmp(shown_.range + 2 * i, told_.range + 2 * i, 2) == 0 &&
           shown_.reflectivity[i] == told_.reflectivity[i] &&
           (!has_flags || std::memcmp(shown_.flags + 2 * i, told_.flags + 2 * i, 2) == 0);
  }

  const FrameHeader& shown_header_;
  const FrameHeader& told_header_;
  Planes shown_;
  Planes told_;
  std::size_t pixel_;
};

// The sentence after the program's name in its last line.
std::string LastSentence(const std::string& errors) {
  constexpr std::string_view kName = "pixel_story: ";
  const std::size_t at = errors.rfind(kName);
  if (at == std::string::npos) return {};
  return errors.substr(at + kName.size(), errors.find('\n', at) - at - kName.size());
}

void TakeStory(FileJob& job, ProcessResult& result) {
  const std::optional<FrameMessage> told = FrameOf(result.results[kPackets]);
  const std::size_t others = told ? Comparison(job, *told).OtherPoints() : job.header.PointCount();
  if (others > 0) {
    return Refuse(job, kNotFound,
                  "the capture does not hold this frame: the one of this number and time has other "
                  "values at " +
                      std::to_string(others) + " of " + std::to_string(job.header.PointCount()) +
                      " points (another stream, another calibration, or packets lost on the way)");
  }
  job.file = std::move(result.results[kPage]);
}

}  // namespace

void MakeStory(const StorySource& source, FileJob& job, const std::function<bool()>& wanted,
               const std::function<void(const std::string& line)>& log) {
  constexpr double kLongestFrameUs = 10e6;
  const FrameHeader& frame = job.header;
  if (!IsTime(frame.first_us) || !IsTime(frame.last_us) || frame.last_us < frame.first_us ||
      frame.last_us - frame.first_us > kLongestFrameUs) {
    return Refuse(job, kNotFound, "the frame's time stamps tell no time, so no capture is of it");
  }
  ProcessResult result = RunLimited(CommandOf(source, job),
                                    {.time = std::chrono::seconds(kLongestStorySeconds)}, wanted);
  using End = ProcessResult::End;
  if (result.end == End::kExit && result.status == 0) return TakeStory(job, result);
  if (result.end == End::kExit && result.status == kFrameNotFound) {
    return Refuse(job, kNotFound, LastSentence(result.errors));
  }
  if (result.end == End::kTooLong) {
    return Refuse(job, kUnavailable,
                  "the story took longer than " + std::to_string(kLongestStorySeconds) + " s");
  }
  if (result.end == End::kNotWanted) return Refuse(job, kUnavailable, "nobody waits for it");
  Refuse(job, kUnavailable, "pixel_story failed; what lidar_web printed tells why");
  log("lidar_web: " + source.program + " failed (" + std::to_string(result.status) + ")\n" +
      result.errors);
}

}  // namespace kerul::lidar::web
