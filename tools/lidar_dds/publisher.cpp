#include "lidar_dds/publisher.h"

namespace kerul::lidar::dds {
namespace {

// One frame on its way out, one that waits: more would only make what arrives older.
constexpr std::size_t kWaitingFrames = 2;
constexpr std::chrono::milliseconds kLookEvery{20};

}  // namespace

Publisher::Publisher(MessageSink& sink) : sink_(sink), frames_(kWaitingFrames) {
  Look();
  thread_ = std::thread([this] { Run(); });
}

Publisher::~Publisher() { Finish(); }

void Publisher::Finish() {
  frames_.Close();
  if (thread_.joinable()) thread_.join();
}

void Publisher::Run() {
  MessageSet messages;
  while (!frames_.IsOver()) {
    if (frames_.Take(messages, kLookEvery)) Write(messages);
    Look();
  }
}

void Publisher::Look() {
  for (std::size_t kind = 0; kind < kMessageKinds; ++kind) {
    subscribers_[kind] = sink_.Subscribers(static_cast<MessageKind>(kind));
  }
}

void Publisher::Write(const MessageSet& messages) {
  bool all_written = true;
  for (std::size_t kind = 0; kind < kMessageKinds; ++kind) {
    if (messages[kind].empty()) continue;
    if (!sink_.Write(static_cast<MessageKind>(kind), messages[kind])) all_written = false;
  }
  ++(all_written ? written_ : refused_);
}

}  // namespace kerul::lidar::dds
