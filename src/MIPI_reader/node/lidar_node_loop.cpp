// The packet loop: one datagram at a time, from the source to the frame.
#include <arpa/inet.h>

#include <algorithm>
#include <iostream>
#include <numeric>
#include <stdexcept>

#include "MIPI_reader/node/lidar_node.h"
#include "source/pcap_source.h"

using kerul::lidar::LidarPoint;
using kerul::lidar::PacketPlanes;
using kerul::lidar::PcapSource;
using kerul::lidar::SocketSource;
using kerul::lidar::Source;
using kerul::lidar::UdpPacket;

namespace {

constexpr int kReceiveTries = 10;
constexpr int kReplayTries = 20000;
constexpr int kReceiveTimeoutUs = 1000;
constexpr auto kRetryPause = std::chrono::microseconds(100);
constexpr auto kReplayFramePause = std::chrono::milliseconds(50);
constexpr std::size_t kPointsReserved = 32;
// A frame counter that falls by more than this has wrapped; a smaller fall is a straggler.
constexpr int kWrapGap = 200;
constexpr int kSmallestCaptureDatagram = 11;

// A capture may hold anything; the sensor's datagrams begin with this magic.
bool IsSensorDatagram(const UdpPacket& packet, int length) {
  return length >= kSmallestCaptureDatagram && packet.buffer[0] == 0xEE && packet.buffer[1] == 0xFF;
}

struct ReceiveResult {
  bool taken = false;
  int length = 0;  // of the last try
};

// Tries until a datagram comes that the source's kind accepts.
ReceiveResult TryReceive(Source& source, UdpPacket& packet, int tries) {
  ReceiveResult result;
  for (int i = 0; i < tries; ++i) {
    result.length = source.Receive(packet, kerul::lidar::kMaxDatagramBytes, 0, kReceiveTimeoutUs);
    if (result.length >= 1) {
      // The cheaper test first; the other one matters for captures only.
      if (IsSensorDatagram(packet, result.length) || source.GetType() != "PCAP") {
        packet.length = static_cast<std::uint16_t>(result.length);
        result.taken = true;
        return result;
      }
    } else if (result.length >= -1) {
      std::this_thread::sleep_for(kRetryPause);
    }
  }
  return result;
}

// The wait also ends for an empty datagram or one with a false checksum, and the read then finds
// nothing. That may be the last of the tries, but nothing has failed.
bool IsIdle(const Source& source) {
  const auto* socket = dynamic_cast<const SocketSource*>(&source);
  return socket != nullptr && socket->FoundNothing();
}

}  // namespace

void LidarNode::Run() {
  UdpPacket packet{};
  std::vector<LidarPoint> points;
  points.reserve(kPointsReserved);
  PacketPlanes planes;
  int frame_id = 0;
  current_frame_id_ = -1;
  const auto* socket = dynamic_cast<const SocketSource*>(source_.get());

  while (running_) {
    if (GetOnePacket(source_.get(), packet) <= 0) continue;

    packet_start_time_ = packet_clock_.Now();
    const PixelRecords records = PrefetchPixels(packet);
    const bool in_planes = StaysInPlanes();
    // The records are not cleared. Decoding writes every field of the echo slots in use but
    // debug_flag and ground_refl_scale. No step before the copy into the frame changes these two or
    // the other slot. So the records of the last packet serve as well as new ones.
    const int packet_index =
        in_planes ? parser_->ParsePacket(packet, planes, frame_id, config_->echo_num)
                  : parser_->ParsePacket(packet, points, frame_id, config_->echo_num);
    if (packet_index == -1) continue;
    if (socket != nullptr && socket->LastSender() != sender_)
      TellSecondSender(socket->LastSender());

    // Deliberate: only the id to compare with, so that the first frame goes out under 0.
    if (current_frame_id_ == -1) current_frame_id_ = frame_id;
    if (BelongsToAnotherFrame(frame_id)) {
      // Deliberate: where the last row has run already, all rows run again.
      AdvanceRows(miniflash_rows_ - 1);
      TellLoss((frame_id - current_frame_id_ - 1) & 0xFF);
      ResetFrame(frame_id % 256);
      // Deliberate: the packet in hand is dropped.
      if (config_->run_once) {
        running_ = false;
        return;
      }
    }

    if (in_planes) {
      UpdateFrames(packet_index, planes, records);
    } else {
      UpdateFrames(packet_index, points);
    }
    ++frame_->received_count;
    frame_busy_ns_ += std::chrono::duration_cast<std::chrono::nanoseconds>(packet_clock_.Now() -
                                                                           packet_start_time_)
                          .count();
    // Deliberate: a straggler's last packet closes the frame in hand as well.
    if (packet_index == parser_->GetNPacketPerFrame() - 1) CloseFrame(frame_id);
  }
}

bool LidarNode::BelongsToAnotherFrame(int frame_id) const noexcept {
  return frame_id > current_frame_id_ || current_frame_id_ - frame_id > kWrapGap;
}

// Rows that are still unprocessed here are dropped, deliberately: only a frame change flushes.
void LidarNode::CloseFrame(int frame_id) {
  if (config_->frame_output_enable) UpsampleAndExport(frame_id);
  TellLoss(0);
  ResetFrame((frame_id + 1) % 256);
  if (config_->run_once) running_ = false;
}

// Once a frame. Nothing of this shows in what is published: a frame with gaps has all its packets.
void LidarNode::TellLoss(int skipped_ids) {
  const auto* socket = dynamic_cast<const SocketSource*>(source_.get());
  const int packets = std::accumulate(mrow_packet_count_.begin(), mrow_packet_count_.end(), 0);
  Warn(loss_watch_.Look({.frame_id = current_frame_id_,
                         .packets = packets,
                         .packets_of_frame = parser_->GetNPacketPerFrame(),
                         .skipped_ids = skipped_ids,
                         .kernel_dropped = socket != nullptr ? socket->KernelDropped() : 0},
                        std::chrono::steady_clock::now()));
}

// Two sensors on one port, or a neighbour whose packets look right, mix their pixels in one frame.
void LidarNode::TellSecondSender(std::uint32_t sender) {
  if (sender_ == 0) {
    sender_ = sender;
    return;
  }
  if (second_sender_is_told_) return;
  second_sender_is_told_ = true;
  char first[INET_ADDRSTRLEN] = "";
  char second[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &sender_, first, sizeof(first));
  inet_ntop(AF_INET, &sender, second, sizeof(second));
  Warn(std::string("packets come from a second sender, ") + second + ", beside " + first +
       ": their pixels share one frame");
}

void LidarNode::Warn(const std::string& text) const {
  if (text.empty()) return;
  std::cerr << "[WARN] [LidarNode][" << name_ << "] " << text << std::endl;
}

int LidarNode::GetOnePacket(Source* source, UdpPacket& packet) {
  // Deliberate: after ten foreign datagrams of a capture the last one's length is returned.
  ReceiveResult result = TryReceive(*source, packet, kReceiveTries);
  if (result.taken || result.length != -1) return result.length;
  if (IsIdle(*source)) return 0;

  if (!source->IsOpened() && source->GetType() == "PCAP") {
    if (auto* capture = dynamic_cast<PcapSource*>(source)) {
      std::cerr << "\n\033[1;34m########loop pcap########\033[0m" << std::endl;
      Log("] pcap EOF, rewind loop playback");
      RewindForReplay();
      capture->Rewind();
      result = TryReceive(*source, packet, kReplayTries);
      if (result.taken || result.length != -1) return result.length;
    }
  }

  if (source->IsOpened()) throw std::runtime_error("Failed to receive packet in max_retry_times");
  // Deliberate: the same words for a capture.
  Log("] the udp source has been closed");
  running_ = false;
  return -1;
}

void LidarNode::RewindForReplay() {
  next_mrow_ = 0;
  current_frame_id_ = -1;
  ResetMrowProgress();
  std::fill(cur_dist_map_.begin(), cur_dist_map_.end(), 0.0F);
  std::fill(prev_dist_map_.begin(), prev_dist_map_.end(), 0.0F);
  prev_dist_map_valid_ = false;
  loss_watch_.Restart();
  frame_->Reset();  // the frame id stays
  stale_pixels_ = kerul::lidar::StalePixels(frame_->height, frame_->width);
  if (upsampled_frame_) upsampled_frame_->Reset();
  upsampled_frame_written_ = false;
  frame_busy_ns_ = 0;
  packet_start_time_ = packet_clock_.Now();
}

void LidarNode::ResetFrame(int frame_id) {
  const int received_count = frame_->received_count;

  if (cur_dist_map_.size() == prev_dist_map_.size()) {
    cur_dist_map_.swap(prev_dist_map_);
    prev_dist_map_valid_ = true;
    std::fill(cur_dist_map_.begin(), cur_dist_map_.end(), 0.0F);
  }

  frame_->frame_id = static_cast<std::uint8_t>(frame_id);
  stale_pixels_.MarkAllStale();
  frame_->pixel_mask.assign(frame_->pixel_mask.size(), false);
  frame_->received_count = 0;
  if (upsampled_frame_) {
    upsampled_frame_->frame_id = static_cast<std::uint8_t>(frame_id);
    if (upsampled_frame_written_) upsampled_frame_->Reset();
    upsampled_frame_written_ = false;
  }

  current_frame_id_ = frame_id;
  next_mrow_ = 0;
  ResetMrowProgress();
  // The rate that the time spent on this frame's packets alone would allow.
  std::cout << "等效解包FPS: " << 1.0 / (static_cast<double>(frame_busy_ns_) / 1e9)
            << ", frame_id: " << frame_id << ", received_count:" << received_count << std::endl;
  frame_busy_ns_ = 0;
  if (shm_writer_) shm_writer_->Tend();
  packet_clock_.Set();
  packet_start_time_ = packet_clock_.Now();
  if (source_->GetType() == "PCAP") std::this_thread::sleep_for(kReplayFramePause);
}

void LidarNode::ResetMrowProgress() {
  const auto rows = static_cast<std::size_t>(miniflash_rows_);
  mrow_packet_seen_.resize(rows);
  for (std::vector<bool>& seen : mrow_packet_seen_) {
    seen.assign(static_cast<std::size_t>(packets_per_mrow_), false);
  }
  mrow_packet_count_.assign(rows, 0);
}
