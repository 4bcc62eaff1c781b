#include "pixel_story/frame_states.h"

#include <algorithm>

#include "MIPI_reader/node/rows/echo_ranking.h"
#include "pixel_story/packet_story.h"

namespace kerul::lidar::story {
namespace {

// Of the passes that erase a raw range.
std::optional<RowPass> PassThatTookTheRange(const EchoRecord& echo) {
  for (std::size_t i = std::size(kRowPassOrder); i > 0; --i) {
    if (echo.states[i - 1].dist_raw > 0.0F && !(echo.states[i].dist_raw > 0.0F)) {
      return kRowPassOrder[i - 1];
    }
  }
  return {};
}

}  // namespace

EchoState StateOf(const LidarEcho& echo) noexcept {
  return {.dist_raw = echo.dist_raw,
          .refl_raw = echo.refl_raw,
          .dist_proc = echo.dist_proc,
          .refl_proc = echo.refl_proc,
          .ground = echo.ground,
          .fill_point = echo.fill_point,
          .bloom = echo.highReflBlooming,
          .shot_noise = echo.shot_noise_group_point,
          .high_refl = echo.highRefl,
          .after_pulse = echo.afterPulse,
          .detect_pass = echo.detect_pass};
}

void FrameStates::Begin(const NodeParts& parts) {
  row_height_ = parts.parser.mrow_height;
  height_ = row_height_ * parts.miniflash_rows;
  width_ = parts.parser.col_groups * parts.parser.group_width;
  echo_count_ = std::min<int>(parts.config.echo_num, kEchoSlots);
  calibration_ = StepsInForce(parts);
  records_.assign(static_cast<std::size_t>(height_ * width_), {});
  arrived_.assign(records_.size(), {});
}

bool FrameStates::IsCalibrated(const LidarPoint& point) const {
  const DistCalib* dist = calibration_.dist;
  const RetroCalib* retro = calibration_.retro;
  return (dist == nullptr || PixelTableEntry(dist->offset, point.row, point.col) != 0.0F) &&
         (retro == nullptr || PixelTableEntry(retro->retro_scale, point.row, point.col) != 0.0F);
}

void FrameStates::OnPacket(const PacketMoment& moment) {
  for (std::size_t i = 0; i < moment.calibrated.size(); ++i) {
    const LidarPoint& point = moment.calibrated[i];
    if (point.row < 0 || point.row >= height_ || point.col < 0 || point.col >= width_) continue;
    Arrived& arrived = arrived_[IndexOf(point.row, point.col)];
    arrived.waits = true;
    for (std::size_t slot = 0; slot < kEchoSlots; ++slot) {
      arrived.echoes[slot] =
          ArrivalOf(moment.parsed[i].echoes[slot], point.echoes[slot], IsCalibrated(point));
    }
  }
}

void FrameStates::TakeArrived(Arrived& arrived, PixelRecord& record) {
  for (std::size_t slot = 0; slot < kEchoSlots; ++slot) {
    EchoRecord& echo = record.echoes[slot];
    if (arrived.waits) {
      echo.arrival = arrived.echoes[slot];
      echo.erased_before.reset();
    } else if (const auto pass = PassThatTookTheRange(echo); record.row_ran && pass) {
      echo.erased_before = pass;
    }
  }
  arrived.waits = false;
}

void FrameStates::Keep(const LidarFrame& frame, int m_row, std::size_t moment) {
  const int first_row = m_row * row_height_;
  for (int row = first_row; row < std::min(first_row + row_height_, height_); ++row) {
    for (int col = 0; col < width_; ++col) {
      const LidarPoint& point =
          frame.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)];
      PixelRecord& record = RecordAt(row, col);
      for (std::size_t slot = 0; slot < kEchoSlots; ++slot) {
        auto& states = record.echoes[slot].states;
        // A pass that does not run leaves what was before it.
        std::fill(states.begin() + static_cast<std::ptrdiff_t>(moment), states.end(),
                  StateOf(point.echoes[slot]));
      }
    }
  }
}

void FrameStates::OnRowBegins(const RowMoment& moment) {
  const int first_row = moment.m_row * row_height_;
  for (int row = first_row; row < std::min(first_row + row_height_, height_); ++row) {
    for (int col = 0; col < width_; ++col) {
      TakeArrived(arrived_[IndexOf(row, col)], RecordAt(row, col));
      RecordAt(row, col).from_slot = {0, 1};
    }
  }
  Keep(moment.frame, moment.m_row, 0);
}

void FrameStates::KeepOrder(const PassMoment& moment) {
  const EchoOutputPlan& plan = moment.settings.tables.echo_plan;
  const int first_row = moment.m_row * row_height_;
  for (int row = first_row; row < std::min(first_row + row_height_, height_); ++row) {
    for (int col = 0; col < width_; ++col) {
      const echo_order::Ranking ranking = echo_order::RankEchoes(
          moment.before.points[static_cast<std::size_t>(row)][static_cast<std::size_t>(col)]);
      RecordAt(row, col).from_slot = {
          echo_order::SelectSlot(plan.first, ranking),
          plan.count == 2 ? echo_order::SelectSlot(plan.second, ranking) : 1};
    }
  }
}

void FrameStates::OnPass(const PassMoment& moment) {
  if (moment.pass == RowPass::kOrder) KeepOrder(moment);
  Keep(moment.after, moment.m_row, MomentAfter(moment.pass));
}

void FrameStates::OnRowPublished(const RowMoment& /*moment*/,
                                 const std::vector<ReceivedPacket>& packets) {
  VisitPublished(packets, [this](int row, int col, int slot, const PublishedPoint& point) {
    PixelRecord& record = RecordAt(row, col);
    record.row_ran = true;
    record.echoes[static_cast<std::size_t>(slot)].published = point;
  });
}

}  // namespace kerul::lidar::story
