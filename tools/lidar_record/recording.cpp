#include "lidar_record/recording.h"

#include <utility>

namespace kerul::lidar::record {

Recording::Recording(FileNames names, mcap::FileDescription description, const SplitLimits& limits)
    : names_(std::move(names)), description_(std::move(description)), limits_(limits) {}

bool Recording::IsSplitDue(const mcap::Chunk& chunk) const {
  if (writer_.Chunks() == 0) return false;
  if (limits_.bytes != 0 && writer_.FinishedSize(chunk) > limits_.bytes) return true;
  constexpr double kNanoseconds = 1e9;  // in a second
  const auto limit_ns = static_cast<std::uint64_t>(limits_.seconds * kNanoseconds);
  const std::uint64_t start = writer_.StartTimeNs();
  const std::uint64_t time = chunk.index.end_time_ns;
  return limit_ns != 0 && time > start && time - start >= limit_ns;
}

bool Recording::Begin() {
  bytes_before_ += writer_.Size();
  messages_before_ += writer_.Messages();
  path_ = names_.Next();
  if (!writer_.Create(path_, description_)) {
    error_ = "cannot write " + path_ + ": " + writer_.Error();
    return false;
  }
  ++files_;
  return true;
}

bool Recording::Write(const mcap::Chunk& chunk) {
  if (writer_.IsOpen() && IsSplitDue(chunk) && !Finish()) return false;
  if (!writer_.IsOpen() && !Begin()) return false;
  if (writer_.Write(chunk)) return true;
  KeepWhatIsWhole();
  return false;
}

void Recording::KeepWhatIsWhole() {
  error_ = "cannot write " + path_ + ": " + writer_.Error() + "; it keeps " +
           std::to_string(writer_.Chunks()) + " whole chunks";
  if (!writer_.Finish()) error_ += ", without their index";
}

bool Recording::Finish() {
  if (!writer_.IsOpen() || writer_.Finish()) return true;
  error_ = "cannot finish " + path_ + ": " + writer_.Error() + "; it keeps " +
           std::to_string(writer_.Chunks()) + " whole chunks, without their index";
  return false;
}

}  // namespace kerul::lidar::record
