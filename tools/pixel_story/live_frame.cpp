#include "pixel_story/live_frame.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "MIPI_reader/parser/raw_packet.h"

namespace kerul::lidar::story {
namespace {

using Clock = std::chrono::steady_clock;
using namespace raw_packet;

constexpr int kRowsOfFrame = 36;
constexpr int kPacketsOfFrame = kRowsOfFrame * kPacketsPerRow;
constexpr int kRawBytes = 692;
constexpr int kReceiveBufferBytes = 32 * 1024 * 1024;
constexpr int kWaitMs = 100;

// The packet's place in the frame; none for a datagram that is not the sensor's.
std::optional<int> PlaceOf(const UdpPacket& packet) {
  if (packet.length < kRawBytes || ReadMagic(packet.buffer) != kMagic ||
      ReadVersion(packet.buffer) != kVersion) {
    return {};
  }
  const RawHeader header = ReadRawHeader(packet.buffer);
  if (header.ch_num != kBlocks) return {};
  const std::uint8_t* last = packet.buffer + kBlocksOffset + (kBlocks - 1) * kBlockBytes;
  const int place = TotalPacketId(header, PixelIdOf(last));
  if (place < 0 || place >= kPacketsOfFrame) return {};
  return place;
}

// A socket of its own on the port.
class Listener {
 public:
  explicit Listener(std::uint16_t port) : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (fd_ < 0) Fail("no socket");
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferBytes, sizeof kReceiveBufferBytes);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    const void* address = &local;
    if (::bind(fd_, static_cast<const sockaddr*>(address), sizeof local) != 0) {
      Fail("cannot listen on UDP port " + std::to_string(port));
    }
  }
  ~Listener() { ::close(fd_); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // False when nothing came for a while.
  bool Receive(UdpPacket& packet) const {
    pollfd waits{.fd = fd_, .events = POLLIN, .revents = 0};
    if (::poll(&waits, 1, kWaitMs) <= 0) return false;
    const ssize_t length = ::recv(fd_, packet.buffer, sizeof packet.buffer, 0);
    packet.length = length > 0 ? static_cast<std::uint16_t>(length) : std::uint16_t{0};
    return length > 0;
  }

 private:
  [[noreturn]] void Fail(const std::string& what) {
    const std::string reason = std::strerror(errno);
    if (fd_ >= 0) ::close(fd_);
    throw std::runtime_error(what + ": " + reason);
  }

  int fd_;
};

std::string InHand(const FrameCatcher& catcher) {
  if (catcher.FrameId() < 0) return "no packet of a sensor yet";
  return "frame " + std::to_string(catcher.FrameId()) + ": " + std::to_string(catcher.Places()) +
         " of " + std::to_string(kPacketsOfFrame) + " packets, " +
         std::to_string(catcher.Passed()) + " incomplete frames before it";
}

}  // namespace

FrameCatcher::FrameCatcher() : seen_(static_cast<std::size_t>(kPacketsOfFrame)) {}

void FrameCatcher::Begin(int frame_id) {
  if (frame_id_ >= 0) ++passed_;
  frame_id_ = frame_id;
  places_ = 0;
  packets_.clear();
  seen_.assign(seen_.size(), false);
}

bool FrameCatcher::Take(const UdpPacket& packet) {
  const std::optional<int> place = PlaceOf(packet);
  if (!place) return false;
  const int frame_id = ReadRawHeader(packet.buffer).frame_id;
  // The node ends a frame at its last place, so that what comes for it after that is another one.
  const bool has_ended = places_ > 0 && seen_.back();
  if (frame_id != frame_id_ || has_ended) Begin(frame_id);
  packets_.push_back(packet);
  const auto at = static_cast<std::size_t>(*place);
  if (!seen_[at]) ++places_;
  seen_[at] = true;
  return *place == kPacketsOfFrame - 1 && places_ == kPacketsOfFrame;
}

std::vector<UdpPacket> CatchFrame(std::uint16_t port, double timeout_s,
                                  const std::function<void(const std::string&)>& progress) {
  const Listener listener(port);
  FrameCatcher catcher;
  UdpPacket packet{};
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(timeout_s));
  auto next_line = Clock::now() + std::chrono::seconds(1);
  progress("waiting for a frame on UDP port " + std::to_string(port));
  while (Clock::now() < end) {
    if (listener.Receive(packet) && catcher.Take(packet)) {
      progress("caught " + InHand(catcher));
      return catcher.Packets();
    }
    if (Clock::now() < next_line) continue;
    progress(InHand(catcher));
    next_line = Clock::now() + std::chrono::seconds(1);
  }
  throw std::runtime_error("no complete frame came in time; " + InHand(catcher));
}

DatagramFeed FeedOfPackets(std::vector<UdpPacket> packets) {
  const auto rest = std::make_shared<std::pair<std::vector<UdpPacket>, std::size_t>>(
      std::move(packets), std::size_t{0});
  return [rest](UdpPacket& packet) {
    if (rest->second == rest->first.size()) return false;
    packet = rest->first[rest->second++];
    return true;
  };
}

}  // namespace kerul::lidar::story
