#include "lidar_record/message_queue.h"

#include <utility>

namespace kerul::lidar::record {
namespace {

constexpr std::size_t kMostSpare = 4;

}  // namespace

void MessageQueue::Append(QueuedMessage& message) {
  used_ += message.data.size();
  messages_.push_back(std::move(message));
  filled_.notify_one();
}

bool MessageQueue::TryPut(QueuedMessage& message) {
  const std::lock_guard lock(mutex_);
  if (output_closed_ || !HasRoom(message.data.size())) return false;
  Append(message);
  return true;
}

bool MessageQueue::Put(QueuedMessage& message) {
  std::unique_lock lock(mutex_);
  emptied_.wait(lock, [&] { return output_closed_ || HasRoom(message.data.size()); });
  if (output_closed_) return false;
  Append(message);
  return true;
}

void MessageQueue::PutSaveRequest() {
  const std::lock_guard lock(mutex_);
  QueuedMessage request;
  request.is_save_request = true;
  Append(request);
}

bool MessageQueue::Take(QueuedMessage& message) {
  std::unique_lock lock(mutex_);
  filled_.wait(lock, [&] { return input_closed_ || !messages_.empty(); });
  if (messages_.empty()) return false;
  message = std::move(messages_.front());
  messages_.pop_front();
  used_ -= message.data.size();
  emptied_.notify_one();
  return true;
}

void MessageQueue::Recycle(mcap::Bytes&& data) {
  const std::lock_guard lock(mutex_);
  if (spare_.size() < kMostSpare) spare_.push_back(std::move(data));
}

mcap::Bytes MessageQueue::Buffer() {
  const std::lock_guard lock(mutex_);
  if (spare_.empty()) return {};
  mcap::Bytes buffer = std::move(spare_.back());
  spare_.pop_back();
  buffer.clear();
  return buffer;
}

void MessageQueue::CloseInput() {
  const std::lock_guard lock(mutex_);
  input_closed_ = true;
  filled_.notify_all();
}

void MessageQueue::CloseOutput() {
  const std::lock_guard lock(mutex_);
  output_closed_ = true;
  emptied_.notify_all();
}

}  // namespace kerul::lidar::record
