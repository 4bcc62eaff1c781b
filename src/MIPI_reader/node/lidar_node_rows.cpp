// The row pipeline: what happens to a finished miniflash row, and its way out.
#include <chrono>
#include <iostream>

#include "MIPI_reader/node/bloom/power_pattern.h"
#include "MIPI_reader/node/ground/ground_refl_scale.h"
#include "MIPI_reader/node/lidar_node.h"
#include "MIPI_reader/node/row_passes.h"
#include "MIPI_reader/parser/fatal_check.h"

using kerul::lidar::LidarPoint;
using kerul::lidar::NoRowHook;
using kerul::lidar::RowPass;
using kerul::lidar::RowPassSettings;

namespace {

// Failed ring writes of the process; only the first few are printed.
std::uint64_t shm_err_log = 0;
constexpr std::uint64_t kPrintedRingFailures = 10;

constexpr std::chrono::seconds kUdpSocketPause{1};

}  // namespace

void LidarNode::ProcessMiniflashRow(int m_row) {
  if (m_row < 0 || m_row >= miniflash_rows_) {
    kerul::lidar::FailAssertion("m_row >= 0 && m_row < miniflash_rows_",
                                "src/MIPI_reader/node/./lidar_node_miniflash_processing", 1845,
                                __PRETTY_FUNCTION__);
  }
  const int rows = parser_->mrow_height;
  const int first_row = m_row * rows;

  // The passes look at most one miniflash row up and down.
  stale_pixels_.ResetRows(*frame_, first_row - rows, first_row + 2 * rows);
  RunRowPasses(*frame_, m_row, PassSettings(m_row), NoRowHook{});
  RecordDistances(m_row);
  if (config_->udp_output || (shm_writer_ && shm_writer_->IsOpened())) {
    ForwardUDP710Row(m_row, echo_plan_);
  }
}

RowPassSettings LidarNode::PassSettings(int m_row) const {
  RowPassSettings settings = MakeRowPassSettings(*config_, {.ground = ground_settings_,
                                                            .angle_grid = angle_grid_,
                                                            .bloom = bloom_calib_,
                                                            .echo_plan = echo_plan_});
  settings.row_height = parser_->mrow_height;
  settings.block_columns = parser_->col_groups;
  settings.possibly_bright_rows = stale_pixels_.PossiblyBrightRows(6 * (std::int64_t{m_row} - 1));
  return settings;
}

void LidarNode::RunPass(RowPass pass, int m_row) {
  RunRowPass(pass, *frame_, m_row, PassSettings(m_row));
}

void LidarNode::Ground(int m_row) {
  if (!config_->ground_enable && !config_->ground_plane_enable) return;
  RunPass(RowPass::kGround, m_row);
}

float LidarNode::ProcessGroundVertSeed(const float* distances, int count, int row, int col,
                                       int first_offset) const {
  return kerul::lidar::EstimateGroundReflScale(distances, count, row, col, first_offset,
                                               angle_grid_);
}

void LidarNode::NeighborMiniflashRow(int m_row) { RunPass(RowPass::kNeighbours, m_row); }

void LidarNode::ApplyShotNoiseMiniflashRowV2(int m_row) { RunPass(RowPass::kShotNoise, m_row); }

void LidarNode::SuppressHighReflBlooming(int m_row) {
  if (!frame_) return;
  RunPass(RowPass::kBloom, m_row);
}

float LidarNode::PatternMatchPower(
    int row, int col, int echo,
    const float (&power_template)[kerul::lidar::kTemplateSide][kerul::lidar::kTemplateSide],
    bool debug) const {
  if (!frame_) {
    if (debug) std::cout << "[BloomDebug][pattern] skip=no_frame" << std::endl;
    return -1.0F;
  }
  return MatchPowerPattern(*frame_, row, col, echo, power_template, bloom_calib_, debug);
}

void LidarNode::RecordDistances(int m_row) {
  const auto width = static_cast<std::size_t>(frame_->width);
  if (cur_dist_map_.size() != static_cast<std::size_t>(frame_->height) * width) return;
  const int first_row = m_row * parser_->mrow_height;
  for (int row = first_row; row < first_row + parser_->mrow_height; ++row) {
    const std::vector<LidarPoint>& points = frame_->points[static_cast<std::size_t>(row)];
    float* map_row = &cur_dist_map_[static_cast<std::size_t>(row) * width];
    for (std::size_t col = 0; col < width; ++col) map_row[col] = points[col].echoes[0].dist_proc;
  }
}

void LidarNode::ForwardUDP710Row(int m_row, const EchoOutputPlan& plan) {
  const bool by_udp = config_->udp_output;
  const int frame_id = frame_->frame_id;
  const int output_mode = config_->output_mode;
  const int echo_output_code = config_->echo_output_code;
  const int first_index = m_row * parser_->col_groups;

  for (int index = first_index; index < first_index + parser_->col_groups; ++index) {
    const auto encode = [&](int echo, std::uint8_t marker) {
      return parser_->GetPacket_7_10_FromFrame(frame_->points, echo, out_packet_, index, frame_id,
                                               output_mode, echo_output_code, marker);
    };
    if (plan.count < 2) {
      Deliver(encode(0, 0), by_udp);
      continue;
    }
    Deliver(encode(0, 1), by_udp);
    Deliver(encode(1, 2), by_udp);
  }
}

// A failed send closes the socket, and sending through a closed one costs a second each: a new one
// takes its place, at most one a second. Packets that come while there is none are lost.
void LidarNode::SendByUdp(std::uint16_t length) {
  if (!udp_output_->IsOpened()) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= next_udp_socket_) {
      next_udp_socket_ = now + kUdpSocketPause;
      udp_output_->OpenToSendAgain(config_->udp_dest_port);
    }
  }
  if (!udp_output_->IsOpened() || udp_output_->Send(out_packet_.buffer, length, 0) < 0) {
    ++unsent_packets_;
    return;
  }
  if (unsent_packets_ == 0) return;
  Warn("UDP output goes on after " + std::to_string(unsent_packets_) +
       " packets that were not sent");
  unsent_packets_ = 0;
}

// A failed delivery loses this packet only.
void LidarNode::Deliver(int length, bool by_udp) {
  if (length <= 0) return;
  if (by_udp) {
    SendByUdp(static_cast<std::uint16_t>(length));
    return;
  }
  if (shm_writer_->WriteOne(out_packet_.buffer, static_cast<std::uint16_t>(length))) return;
  if (shm_err_log++ < kPrintedRingFailures) {
    std::cerr << "[LidarNode][" << name_
              << "] ShmUdpWriter::WriteOne failed write_errors=" << shm_writer_->WriteErrors()
              << std::endl;
  }
}
