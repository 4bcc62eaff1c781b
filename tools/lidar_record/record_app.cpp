#include "lidar_record/record_app.h"

#include <chrono>
#include <memory>
#include <ostream>
#include <utility>

#include "lidar_record/channels.h"
#include "lidar_record/file_names.h"
#include "lidar_record/frame_intake.h"
#include "lidar_record/message_queue.h"
#include "lidar_record/progress.h"
#include "lidar_record/raw_capture.h"
#include "lidar_record/recorder.h"

namespace kerul::lidar::record {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Waiting for the disk at most: twelve seconds of whole frames at ten a second.
constexpr std::size_t kQueueBytes = std::size_t{256} << 20;
constexpr milliseconds kStatusInterval{1000};
// How long a wait for a frame may delay a stop request or a time limit.
constexpr milliseconds kLongestWait{50};
constexpr const char* kClearLine = "\r\033[K";

// Lines for the user.
class Telling {
 public:
  Telling(bool overwrite, std::ostream& out, std::ostream& err)
      : overwrite_(overwrite), out_(out), err_(err) {}

  void Progress(const std::string& line) {
    out_ << (overwrite_ ? kClearLine : "") << line << (overwrite_ ? "" : "\n") << std::flush;
    on_progress_ = overwrite_;
  }
  void Line(const std::string& line) {
    if (std::exchange(on_progress_, false)) out_ << "\n";
    out_ << line << std::endl;
  }
  void Error(const std::string& text) {
    had_errors_ = true;
    Warning(text);
  }
  void Warning(const std::string& text) {
    if (std::exchange(on_progress_, false)) out_ << std::endl;
    err_ << "lidar_record: " << text << std::endl;
  }
  void Events(const std::vector<RecorderEvent>& events) {
    for (const RecorderEvent& event : events) {
      event.is_error ? Error(event.text) : Line(event.text);
    }
  }
  bool HadErrors() const noexcept { return had_errors_; }

 private:
  bool overwrite_;
  std::ostream& out_;
  std::ostream& err_;
  bool on_progress_ = false;  // the cursor stands after a progress line
  bool had_errors_ = false;
};

class RecordRun {
 public:
  RecordRun(const RecordOptions& options, RecordRequests& requests, FrameStream& stream,
            Recording& recording)
      : options_(options),
        requests_(requests),
        stream_(stream),
        queue_(kQueueBytes),
        intake_(options.messages, stream, queue_),
        recorder_(options, queue_, recording) {}

  // Until a limit, a request or a failure ends it.
  void Run(Telling& telling) {
    const Clock::time_point start = Clock::now();
    Clock::time_point shown = start;
    while (!IsOver(Clock::now() - start) && TakeSome()) {
      PassRequests();
      telling.Events(recorder_.TakeEvents());
      if (Clock::now() - shown < kStatusInterval) continue;
      shown = Clock::now();
      telling.Progress(
          FormatProgress(Counts(), stream_.Counts(), State(), options_.mode == Mode::kOnSignal));
    }
    PassRequests();
    recorder_.Stop();
    telling.Events(recorder_.TakeEvents());
  }

  RecorderState State() { return recorder_.State(); }
  const IntakeCounts& Counts() const noexcept { return intake_.Counts(); }

 private:
  bool IsOver(Clock::duration elapsed) const {
    const std::uint64_t recorded = Counts().frames - Counts().left_out;
    return requests_.stop || recorder_.HasFailed() ||
           (options_.frames != 0 && recorded >= options_.frames) ||
           (options_.seconds > 0.0 &&
            std::chrono::duration<double>(elapsed).count() >= options_.seconds);
  }

  // False when there is nothing more to take.
  bool TakeSome() {
    if (options_.mode == Mode::kLast) return intake_.TakeHeld();
    intake_.TakeNext(kLongestWait);
    return true;
  }

  void PassRequests() {
    for (; requests_.saves > 0; --requests_.saves) queue_.PutSaveRequest();
  }

  const RecordOptions& options_;
  RecordRequests& requests_;
  FrameStream& stream_;
  MessageQueue queue_;
  FrameIntake intake_;
  Recorder recorder_;
};

// The datagrams of the capture, after the frames.
void AddRaw(const RecordOptions& options, Recording& recording, Telling& telling) {
  mcap::ChunkBuilder builder(options.compression, CompressionLevel(options.compression));
  std::uint64_t count = 0;
  std::string error;
  if (!AddRawCapture(options.raw_capture, builder, recording, count, error)) {
    return telling.Error(error);
  }
  telling.Line(std::to_string(count) + " datagrams of " + options.raw_capture + " added");
}

}  // namespace

int RunRecord(const RecordOptions& options, RecordRequests& requests, bool overwrite_status,
              std::ostream& out, std::ostream& err) {
  Telling telling(overwrite_status, out, err);
  std::string error;
  const bool held = options.mode == Mode::kLast;
  const auto stream =
      ros::OpenStream(options.stream, held ? RingStart::kOldest : RingStart::kNewest, error);
  if (stream == nullptr) {
    telling.Error(error);
    return 1;
  }
  stream->SurviveShortening();
  const FileNames names(options.out);
  for (const std::string& note : names.UnfinishedFiles()) telling.Warning(note);

  const bool with_raw = !options.raw_capture.empty();
  Recording recording(names, DescribeRecording(options.topic, with_raw),
                      {options.split_bytes, options.split_seconds});
  RecordRun run(options, requests, *stream, recording);
  run.Run(telling);
  if (with_raw && !telling.HadErrors()) AddRaw(options, recording, telling);
  if (!recording.Finish()) telling.Error(recording.Error());
  RecorderState state = run.State();
  state.bytes = recording.Bytes();
  state.files = recording.Files();
  telling.Line(FormatEnd(run.Counts(), stream->Counts(), state));
  if (state.messages == 0 && options.mode != Mode::kOnSignal && !telling.HadErrors()) {
    telling.Error("no frame came from " + stream->Describe());
  }
  return telling.HadErrors() ? 1 : 0;
}

}  // namespace kerul::lidar::record
