#include "lidar_dds/bridge.h"

#include <chrono>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "lidar_dds/publisher.h"
#include "ros_messages/frame_messages.h"

namespace kerul::lidar::dds {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kStatusInterval{1000};
// How long a wait for a frame may delay a stop request, a time limit or the status line.
constexpr std::chrono::milliseconds kLongestWait{50};

double SecondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

std::uint64_t FramesOf(const FrameStreamCounts& counts) {
  return counts.complete + counts.incomplete;
}

// What is asked for, and subscribed to, of one frame.
class Maker {
 public:
  explicit Maker(const BridgeOptions& options)
      : messages_(options.messages), images_(options.images) {}

  void HandOn(const Frame& frame, Publisher& publisher) {
    for (auto& message : set_) message.clear();
    if (publisher.Subscribers(kCloud) > 0) messages_.WriteCloud(frame, set_[kCloud]);
    if (images_ && publisher.Subscribers(kRangeImage) > 0) {
      messages_.WriteRangeImage(frame, set_[kRangeImage]);
    }
    if (images_ && publisher.Subscribers(kReflectivityImage) > 0) {
      messages_.WriteReflectivityImage(frame, set_[kReflectivityImage]);
    }
    for (const auto& message : set_) {
      if (message.empty()) continue;
      publisher.Put(set_);
      return;
    }
  }

 private:
  ros::FrameMessages messages_;
  bool images_;
  MessageSet set_;
};

class StatusLine {
 public:
  StatusLine(bool overwrite, std::ostream& out) : overwrite_(overwrite), out_(out) {}

  void ShowIfDue(const FrameStreamCounts& counts, const Publisher& publisher) {
    const Clock::time_point now = Clock::now();
    if (now - shown_ < kStatusInterval) return;
    const std::uint64_t frames = FramesOf(counts);
    const double per_second =
        static_cast<double>(frames - frames_shown_) / SecondsBetween(shown_, now);
    std::ostringstream line;
    line << std::fixed << std::setprecision(1) << "frames/s " << per_second << "  published "
         << publisher.Written() << "  left out " << publisher.LeftOut() << "  subscribers "
         << publisher.Subscribers(kCloud) << "  lost " << counts.lost_packets << "  incomplete "
         << counts.incomplete << "  missing " << counts.missing_frames;
    out_ << (overwrite_ ? "\r\033[K" : "") << line.str() << (overwrite_ ? "" : "\n") << std::flush;
    shown_ = now;
    frames_shown_ = frames;
  }
  void End() {
    if (overwrite_) out_ << std::endl;
  }

 private:
  bool overwrite_;
  std::ostream& out_;
  Clock::time_point shown_ = Clock::now();
  std::uint64_t frames_shown_ = 0;
};

}  // namespace

BridgeResult RunBridge(const BridgeOptions& options, FrameStream& stream, MessageSink& sink,
                       const std::atomic<bool>& stop, bool overwrite_status, std::ostream& out) {
  const Clock::time_point start = Clock::now();
  Publisher publisher(sink);
  Maker maker(options);
  StatusLine status(overwrite_status, out);
  while (!stop) {
    const Frame* frame = stream.Next(kLongestWait);
    if (frame != nullptr) maker.HandOn(*frame, publisher);
    status.ShowIfDue(stream.Counts(), publisher);
    if (options.seconds > 0.0 && SecondsBetween(start, Clock::now()) >= options.seconds) break;
    if (options.frames != 0 && stream.Counts().complete >= options.frames) break;
  }
  publisher.Finish();
  status.End();
  return {stream.Counts(), publisher.Written(), publisher.LeftOut()};
}

}  // namespace kerul::lidar::dds
