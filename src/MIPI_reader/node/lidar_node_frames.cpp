// Frame assembly: calibrated points into the frame, and rows into the pipeline as they complete.
#include <algorithm>

#include "MIPI_reader/node/frame_end/echo_merge.h"
#include "MIPI_reader/node/frame_end/frame_export.h"
#include "MIPI_reader/node/frame_end/frame_upsampling.h"
#include "MIPI_reader/node/lidar_node.h"
#include "MIPI_reader/parser/packet_decoding.h"
#include "MIPI_reader/parser/raw_packet.h"
#include "MIPI_reader/parser/record_copy.h"

using kerul::lidar::LidarPoint;
using kerul::lidar::PacketPlanes;
using kerul::lidar::UdpPacket;
namespace raw_packet = kerul::lidar::raw_packet;

void LidarNode::UpdateFrames(int packet_index, std::vector<LidarPoint>& points) {
  if (config_->calib_enable) CalibratePoints(points);
  CopyIntoFrame(points);
  CountPacket(packet_index);
}

void LidarNode::UpdateFrames(int packet_index, PacketPlanes& planes, const PixelRecords& records) {
  if (config_->calib_enable) packet_calibrator_->Calibrate(planes);
  StoreIntoFrame(planes, records);
  CountPacket(packet_index);
}

bool LidarNode::StaysInPlanes() const noexcept {
  return parser_->CanParseIntoPlanes(config_->echo_num) &&
         (!config_->calib_enable || packet_calibrator_->FitsLanes());
}

void LidarNode::CountPacket(int packet_index) {
  const int row = packet_index / packets_per_mrow_;
  const int packet_of_row = packet_index % packets_per_mrow_;
  // Wild packet fields can point past the tables: such a packet has no place in the schedule.
  if (packet_index < 0 || row >= miniflash_rows_) return;
  std::vector<bool>& seen = mrow_packet_seen_[static_cast<std::size_t>(row)];
  if (seen[static_cast<std::size_t>(packet_of_row)]) return;
  seen[static_cast<std::size_t>(packet_of_row)] = true;
  const int count = ++mrow_packet_count_[static_cast<std::size_t>(row)];

  if (count >= packets_per_mrow_) {
    AdvanceRows(row);
  } else if (row - 1 > next_mrow_) {
    AdvanceRows(row - 1);
  }
}

void LidarNode::CalibratePoints(std::vector<LidarPoint>& points) {
  packet_calibrator_->Calibrate(points);
}

LidarNode::PixelRecords LidarNode::PrefetchPixels(const UdpPacket& packet) noexcept {
  PixelRecords records;
  const int first_row = packet.buffer[raw_packet::kGroupIdOffset] * parser_->mrow_height;
  const int first_col = packet.buffer[raw_packet::kSlotIdOffset] * parser_->group_width;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::uint8_t* block =
        packet.buffer + raw_packet::kBlocksOffset + i * raw_packet::kBlockBytes;
    const int place = kerul::lidar::kPixelPlaces.offsets[kerul::lidar::PixelIdOf(block)];
    const int row = (place & 0xFFFF) + first_row;
    const int col = (place >> 16) + first_col;
    records[i] = &outside_;
    if (i == 0 && packet_calibrator_) packet_calibrator_->Prefetch(row, col);
    if (row >= frame_->height || col >= frame_->width) continue;
    records[i] = &frame_->points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
    kerul::lidar::PrefetchForWrite(*records[i]);
  }
  return records;
}

void LidarNode::CopyIntoFrame(const std::vector<LidarPoint>& points) noexcept {
  const auto in_grid = [this](const LidarPoint& point) {
    return point.row >= 0 && point.row < frame_->height && point.col >= 0 &&
           point.col < frame_->width;
  };
  constexpr std::size_t kAtATime = 16;
  LidarPoint* places[kAtATime];
  for (std::size_t first = 0; first < points.size(); first += kAtATime) {
    const std::size_t count = std::min(kAtATime, points.size() - first);
    for (std::size_t i = 0; i < count; ++i) {
      const LidarPoint& point = points[first + i];
      places[i] = &outside_;
      if (!in_grid(point)) continue;
      places[i] =
          &frame_->points[static_cast<std::size_t>(point.row)][static_cast<std::size_t>(point.col)];
      stale_pixels_.MarkFresh(point.row, point.col, point.echoes[0].highRefl);
    }
    kerul::lidar::CopyPoints(&points[first], places, static_cast<int>(count));
  }
}

void LidarNode::StoreIntoFrame(const PacketPlanes& planes, const PixelRecords& records) noexcept {
  const std::uint32_t bright = kerul::lidar::BrightPixels(planes);
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (records[i] == &outside_) continue;
    stale_pixels_.MarkFresh(planes.row[i], planes.col[i], (bright >> i & 1U) != 0);
  }
  kerul::lidar::StorePacket(planes, records.data());
}

// Runs the rows before `target_row`; the last row of the frame runs itself too. Deliberate: a row
// that completes after the schedule has passed it moves the schedule back to it.
void LidarNode::AdvanceRows(int target_row) {
  const int last_row = miniflash_rows_ - 1;
  if (target_row > 0) {
    for (int row = next_mrow_; row < target_row; ++row) ProcessMiniflashRow(row);
    next_mrow_ = target_row;
  }
  if (target_row != last_row) return;
  for (int row = next_mrow_; row <= target_row; ++row) ProcessMiniflashRow(row);
  next_mrow_ = 0;
}

void LidarNode::SettleFrame() noexcept { stale_pixels_.ResetRows(*frame_, 0, frame_->height); }

void LidarNode::UpsampleAndExport(int frame_id) {
  SettleFrame();
  if (frame_ && upsampled_frame_ && UpsampleFrame(*frame_, *upsampled_frame_)) {
    upsampled_frame_written_ = true;
  }
  if (!config_->export_dir.empty()) ExportFrameFile(frame_id);
}

void LidarNode::ExportFrameFile(int frame_id) {
  const bool doubled = kerul::lidar::ExportModeCode(config_->export_mode) == 2;
  const std::shared_ptr<kerul::lidar::LidarFrame>& frame = doubled ? upsampled_frame_ : frame_;
  if (!frame) return;
  // Deliberate: the number is used up, whatever becomes of the file.
  ExportFrame(*frame, {.export_dir = config_->export_dir,
                       .node_name = name_,
                       .export_mode = config_->export_mode,
                       .frame_id = frame_id,
                       .sequence = export_file_seq_++});
}

LidarPoint LidarNode::mergeLidarPointEchoConvolveImpl(const LidarPoint* const* points,
                                                      int count) const {
  return kerul::lidar::MergePoints(points, count);
}

std::uint64_t LidarNode::PickAndMergeEchoFour_(const LidarPoint* const* points, int echo,
                                               std::uint16_t* out) const {
  return kerul::lidar::PickAndMergeFour(points, echo, out);
}

int LidarNode::MergeEchoHistogramsAxisAccum_(const std::uint16_t* const* windows,
                                             const int* addresses, int count,
                                             std::uint16_t* out) const {
  return kerul::lidar::MergeWindowsOnAxis(windows, addresses, count, out);
}
