#include "lidar_record/recorder.h"

#include <algorithm>
#include <utility>

namespace kerul::lidar::record {
namespace {

constexpr std::uint64_t kMib = std::uint64_t{1} << 20;

Backlog::Clock::duration ToDuration(double seconds) {
  constexpr double kLongest = 1e9;  // thirty years: no overflow of the clock's count
  return std::chrono::duration_cast<Backlog::Clock::duration>(
      std::chrono::duration<double>(std::min(seconds, kLongest)));
}

}  // namespace

int CompressionLevel(mcap::Compression compression) noexcept {
  return compression == mcap::Compression::kZstd ? 1 : 0;
}

Recorder::Recorder(const RecordOptions& options, MessageQueue& queue, Recording& recording)
    : keeps_(options.mode == Mode::kOnSignal),
      builder_(options.compression, CompressionLevel(options.compression)),
      queue_(queue),
      recording_(recording),
      backlog_(ToDuration(options.kept_seconds), options.memory_mib * kMib),
      thread_([this] { Run(); }) {}

void Recorder::Stop() {
  queue_.CloseInput();
  if (thread_.joinable()) thread_.join();
}

RecorderState Recorder::State() {
  const std::lock_guard lock(mutex_);
  return state_;
}

std::vector<RecorderEvent> Recorder::TakeEvents() {
  const std::lock_guard lock(mutex_);
  return std::exchange(events_, {});
}

void Recorder::Run() {
  QueuedMessage message;
  while (!failed_ && queue_.Take(message)) {
    if (message.is_save_request) {
      Save();
    } else {
      TakeMessage(message);
    }
    Publish();
  }
  queue_.CloseOutput();
  Publish();
}

void Recorder::TakeMessage(QueuedMessage& message) {
  builder_.Add(message.header, message.data);
  queue_.Recycle(std::move(message.data));
  mcap::Chunk chunk = builder_.Finish();
  if (keeps_) {
    backlog_.Add(std::move(chunk), message.arrival);
  } else if (!recording_.Write(chunk)) {
    Note(true, recording_.Error());
    failed_ = true;
  }
}

// All that is kept, as files of their own.
void Recorder::Save() {
  if (backlog_.Entries().empty()) return Note(false, "nothing is kept yet, so nothing is written");
  bool written = true;
  for (const Backlog::Entry& entry : backlog_.Entries()) {
    written = written && recording_.Write(entry.chunk);
  }
  if (!written || !recording_.Finish()) return Note(true, recording_.Error());
  Note(false, "wrote " + recording_.Path() + ": " + std::to_string(backlog_.Entries().size()) +
                  " frames" + (backlog_.DroppedEarly() == 0 ? "" : ", as many as --memory allows"));
}

void Recorder::Publish() {
  const std::lock_guard lock(mutex_);
  state_.messages = recording_.Messages();
  state_.bytes = recording_.Bytes();
  state_.files = recording_.Files();
  state_.path = recording_.Path();
  state_.kept_messages = backlog_.Entries().size();
  state_.kept_bytes = backlog_.Bytes();
  state_.kept_seconds = std::chrono::duration<double>(backlog_.Span()).count();
}

void Recorder::Note(bool is_error, const std::string& text) {
  const std::lock_guard lock(mutex_);
  events_.push_back({is_error, text});
}

}  // namespace kerul::lidar::record
