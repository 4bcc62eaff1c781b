#include "reference/node.h"

#include <cstdio>

#include "reference/bloom.h"
#include "reference/merge.h"
#include "reference/row_filters.h"

namespace reference {
namespace {

constexpr int kMiniflashRows = 36;
constexpr int kPacketsPerRow = 192;
constexpr int kPacketsPerFrame = 6912;
constexpr int kColumnGroups = 48;

}  // namespace

// --- The packet loop ---

void Node::Feed(const std::uint8_t* data, std::size_t length) {
  if (!running || length == 0) return;
  const std::size_t taken = length > 1500 ? 1500 : length;
  for (std::size_t i = 0; i < taken; ++i) in_packet_.buffer[i] = data[i];
  in_packet_.length = static_cast<std::uint16_t>(taken);
  RunPacket();
}

void Node::RunPacket() {
  // Decode.
  points_.clear();
  const int packet_index = ParsePacket(parser_, in_packet_, points_, frame_id_, config_.echo_num);
  if (packet_index == -1) return;

  // Does the packet open another frame?
  const int C = current_frame_id;
  const int F = frame_id_;
  bool frame_change = false;
  if (C == -1) {
    current_frame_id = F;
  } else if (F > C) {
    frame_change = true;
  } else if (C - F > 200) {
    frame_change = true;
  }

  // Flush what has not run and close the frame in hand.
  if (frame_change) {
    AdvanceRows(kMiniflashRows - 1);
    CloseFrame(F % 256);
    if (config_.run_once) {
      running = false;
      return;
    }
  }

  // Take the packet in.
  UpdateFrames(packet_index);
  ++frame.received_count;

  // The last packet of a frame closes it; rows that have not run are dropped.
  if (packet_index == kPacketsPerFrame - 1) {
    const int closing_id = frame_id_;
    if (config_.frame_output_enable) {
      Upsample(frame, upsampled_frame);
      ExportFrame(closing_id);
    }
    CloseFrame((closing_id + 1) % 256);
    if (config_.run_once) running = false;
  }
}

void Node::CloseFrame(int id) {
  const int received_count = frame.received_count;
  prev_dist_map = cur_dist_map;
  for (float& value : cur_dist_map) value = 0.0F;
  // The frame, then the doubled frame.
  frame.frame_id = static_cast<std::uint8_t>(id);
  ResetFrame(frame);
  upsampled_frame.frame_id = static_cast<std::uint8_t>(id);
  ResetFrame(upsampled_frame);
  // The schedule starts anew.
  current_frame_id = id;
  next_mrow = 0;
  ResetMrowProgress();
  closed_frames.push_back(FrameClosed{id, received_count});
}

void Node::ResetMrowProgress() {
  mrow_packet_seen_.clear();
  mrow_packet_count_.clear();
  for (int row = 0; row < kMiniflashRows; ++row) {
    mrow_packet_seen_.emplace_back(static_cast<std::size_t>(kPacketsPerRow), false);
    mrow_packet_count_.push_back(0);
  }
}

void Node::ExportFrame(int closing_id) {
  if (config_.export_dir.empty()) return;
  const bool sensor_frame = config_.export_mode == "raw" || config_.export_mode == "processed";
  const LidarFrame& chosen = sensor_frame ? frame : upsampled_frame;
  const std::uint64_t n = export_file_seq_;
  ++export_file_seq_;
  const std::string name = config_.lidar_name + "_node";
  char path[1024];
  const int length = std::snprintf(
      path, sizeof(path), "%s/%s_%s_f%03d_n%06llu.bin", config_.export_dir.c_str(), name.c_str(),
      config_.export_mode.c_str(), closing_id & 0xFF, static_cast<unsigned long long>(n));
  if (length <= 0 || length >= 1024) return;
  exported_files.push_back(
      ExportedFile{path, ExportFileBytes(chosen, config_.export_mode, closing_id, n)});
}

// --- Frame assembly and row schedule ---

void Node::CalibratePacket() {
  if (has_environment_) CompensateForEnvironment(environment_, points_);
  if (has_range_) CorrectRange(range_, points_);
  if (has_height_map_) MapHeights(height_map_, points_);
  if (has_high_refl_check_) CheckHighRefl(config_.high_refl_check, points_);
  if (has_reflectivity_) CalibrateReflectivity(reflectivity_, points_);
}

void Node::UpdateFrames(int packet_index) {
  if (config_.calib_enable) CalibratePacket();
  // Every point inside the grid, repeated packets too.
  for (const LidarPoint& point : points_) {
    if (point.row < 0 || point.row > frame.height - 1) continue;
    if (point.col < 0 || point.col > frame.width - 1) continue;
    frame.points[static_cast<std::size_t>(point.row)][static_cast<std::size_t>(point.col)] = point;
  }
  // Row and place of the packet; outside the tables there is no progress.
  const int r = packet_index / kPacketsPerRow;
  const int k = packet_index % kPacketsPerRow;
  if (r < 0 || r >= kMiniflashRows || k < 0) return;
  const auto row = static_cast<std::size_t>(r);
  const auto bit = static_cast<std::size_t>(k);
  // A repeated packet.
  if (mrow_packet_seen_[row][bit]) return;
  mrow_packet_seen_[row][bit] = true;
  ++mrow_packet_count_[row];
  // The row is complete.
  if (mrow_packet_count_[row] >= kPacketsPerRow) {
    AdvanceRows(r);
    return;
  }
  // A row two further down has begun.
  if (r - 1 > next_mrow) AdvanceRows(r - 1);
}

void Node::AdvanceRows(int target) {
  const int t = target;
  const int last = kMiniflashRows - 1;
  if (t > 0) {
    if (t > next_mrow) {
      for (int row = next_mrow; row <= t - 1; ++row) ProcessMiniflashRow(row);
    }
    next_mrow = t;
    if (t != last) return;
  }
  if (t == 0 && t != last) return;
  for (int row = next_mrow; row <= t; ++row) ProcessMiniflashRow(row);
  next_mrow = 0;
}

// --- The row driver ---

void Node::ProcessMiniflashRow(int m_row) {
  Prime(frame, m_row);
  // The passes, then the order of the echoes.
  if (config_.calib_enable) {
    if (config_.ground_enable || config_.ground_plane_enable) {
      Ground(frame, m_row, ground_settings_, angle_grid_);
    }
    if (config_.neighbor_check_enable) NeighborMiniflashRow(frame, m_row);
    if (config_.shot_noise_enable) {
      ApplyShotNoiseMiniflashRow(frame, m_row, kColumnGroups, config_.shot_noise_dist_gate);
    }
    if (config_.high_ref_blooming) {
      SuppressHighReflBlooming(frame, m_row, bloom_calib_, config_.blooming_filter_enable);
    }
    if (config_.echo_num > 1 && LidarPoint::echo_num >= 2) {
      OrderRowEchoes(frame, m_row, echo_plan_);
    }
  }
  // Ranges for the next frame.
  for (std::size_t row = static_cast<std::size_t>(m_row) * 6;
       row < static_cast<std::size_t>(m_row) * 6 + 6; ++row) {
    for (std::size_t col = 0; col < 288; ++col) {
      cur_dist_map[row * 288 + col] = frame.points[row][col].echoes[0].dist_proc;
    }
  }
  ForwardRow(m_row);
}

void Node::ForwardRow(int m_row) {
  for (int i = m_row * kColumnGroups; i <= m_row * kColumnGroups + kColumnGroups - 1; ++i) {
    if (echo_plan_.count < 2) {
      SendBlock(i, 0, 0);
      continue;
    }
    SendBlock(i, 0, 1);
    SendBlock(i, 1, 2);
  }
}

void Node::SendBlock(int packet_index, int slot, int marker) {
  PacketRequest request;
  request.echo = slot;
  request.packet_index = packet_index;
  request.frame_id = frame.frame_id;
  request.output_mode = config_.output_mode;
  request.echo_output_code = config_.echo_output_code;
  request.marker = marker;
  const int length = EncodePacket(parser_, frame.points, out_packet_, request, WallClock{});
  if (length <= 0) return;
  PublishedPacket packet{};
  for (std::size_t i = 0; i < packet.size(); ++i) packet[i] = out_packet_.buffer[i];
  published.push_back(packet);
}

}  // namespace reference
