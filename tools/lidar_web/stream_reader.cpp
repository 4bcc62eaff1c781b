#include "lidar_web/stream_reader.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>

#include "kerul_lidar/shm_region.h"
#include "lidar_web/system_clock.h"

namespace kerul::lidar::web {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kLongestWait{50};
constexpr std::chrono::seconds kRecent{1};

}  // namespace

StreamReader::~StreamReader() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

bool StreamReader::Open(const StreamSource& source, std::string& error) {
  stream_ = std::make_unique<FrameStream>(source.shm_name);
  if (source.udp_port == 0) {
    ring_path_ = ShmRegion::ObjectFile(ShmRegion::NormalizeName(source.shm_name.c_str()));
    stream_->SurviveShortening();
  } else if (!stream_->OpenUdp(static_cast<std::uint16_t>(source.udp_port),
                               source.multicast_group)) {
    error = "cannot open UDP port " + std::to_string(source.udp_port) + ": " + stream_->Error();
    return false;
  }
  figures_.by_udp = source.udp_port != 0;
  UpdateFigures();
  return true;
}

void StreamReader::Start() { thread_ = std::thread(&StreamReader::Run, this); }

NewestFrames StreamReader::Newest() const {
  const std::lock_guard lock(mutex_);
  return newest_;
}

StreamFigures StreamReader::Figures() const {
  const std::lock_guard lock(mutex_);
  return shown_;
}

void StreamReader::Run() {
  pthread_setname_np(pthread_self(), "stream");
  while (!stop_) {
    const Frame* frame = stream_->Next(kLongestWait);
    if (frame != nullptr) Take(*frame);
    UpdateFigures();
    if (frame != nullptr) on_frame_();
  }
}

void StreamReader::Take(const Frame& frame) {
  const auto taken_us = static_cast<double>(SystemClockUs());
  auto message = std::make_shared<FrameMessage>();
  EncodeFrame(frame, ++serial_, taken_us, room_before_, *message);
  const auto now = Clock::now();
  // The clock may have been set back in between.
  const double latency_s = std::max(0.0, (taken_us - message->header.last_us) / 1e6);
  figures_.latency.Take(latency_s);
  latencies_.push_back({now, latency_s});
  figures_.missing_blocks += static_cast<std::uint64_t>(frame.missing_blocks);
  if (frame.IsComplete()) figures_.last_complete = now;
  frame_rate_.Add(now, serial_);
  const std::lock_guard lock(mutex_);
  newest_.any = message;
  if (frame.IsComplete()) newest_.complete = message;
}

void StreamReader::UpdateFigures() {
  const auto now = Clock::now();
  const std::uint64_t packets_before = figures_.counts.packets;
  figures_.counts = stream_->Counts();
  if (figures_.counts.packets != packets_before) {
    figures_.last_packet = now;
    packet_rate_.Add(now, figures_.counts.packets);
  }
  figures_.frames_per_s = frame_rate_.PerSecond(now);
  figures_.packets_per_s = packet_rate_.PerSecond(now);
  while (!latencies_.empty() && now - latencies_.front().time > kRecent) latencies_.pop_front();
  double sum_s = 0.0;
  for (const RecentLatency& latency : latencies_) sum_s += latency.seconds;
  figures_.recent_latency_s.reset();
  if (!latencies_.empty()) {
    figures_.recent_latency_s = sum_s / static_cast<double>(latencies_.size());
  }
  figures_.source = stream_->Describe();
  // Describe gives the reason in brackets; a ring that was removed is still read until another
  // comes.
  figures_.source_ok = !figures_.source.ends_with(')') && RingIsThere();
  const std::lock_guard lock(mutex_);
  shown_ = figures_;
}

bool StreamReader::RingIsThere() const {
  return ring_path_.empty() || access(ring_path_.c_str(), F_OK) == 0;
}

}  // namespace kerul::lidar::web
