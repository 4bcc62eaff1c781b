#include "kerul_lidar/pipe_point_reader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kerul_lidar/point_packet_layout.h"

namespace kerul::lidar {
namespace {

constexpr std::size_t kPacketBytes = point_packet::kBytes;
static_assert(kPacketBytes <= kReceivedPacketRoom);
// As much as a pipe holds on Linux.
constexpr std::size_t kBufferBytes = 1 << 16;

}  // namespace

// poll would wait at a negative descriptor.
PipePointReader::PipePointReader(int fd) : fd_(fd), ended_(fd < 0), buffer_(kBufferBytes) {}

bool PipePointReader::Receive(ReceivedPacket& packet, std::chrono::milliseconds timeout) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + timeout;
  while (end_ - begin_ < kPacketBytes) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (!Fill(std::max(left, std::chrono::milliseconds(0)))) return false;
  }
  packet.number = 0;
  packet.length = kPacketBytes;
  std::memcpy(packet.bytes, buffer_.data() + begin_, kPacketBytes);
  begin_ += kPacketBytes;
  return true;
}

// Takes what is there. False when nothing came in time.
bool PipePointReader::Fill(std::chrono::milliseconds timeout) {
  if (ended_) return false;
  pollfd waiting{fd_, POLLIN, 0};
  const auto longest = std::min<std::int64_t>(timeout.count(), 1 << 30);
  const int ready = poll(&waiting, 1, static_cast<int>(longest));
  if (ready == 0 || (ready < 0 && errno == EINTR)) return false;
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  const ssize_t taken = read(fd_, buffer_.data() + end_, buffer_.size() - end_);
  if (taken < 0 && (errno == EINTR || errno == EAGAIN)) return false;
  ended_ = taken <= 0;
  if (ended_) return false;
  end_ += static_cast<std::size_t>(taken);
  return true;
}

}  // namespace kerul::lidar
