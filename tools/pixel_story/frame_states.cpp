#include "pixel_story/frame_states.h"

#include <algorithm>

namespace kerul::lidar::story {

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
  records_.assign(static_cast<std::size_t>(height_ * width_), {});
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

void FrameStates::OnRowBegins(const RowMoment& moment) { Keep(moment.frame, moment.m_row, 0); }

void FrameStates::OnPass(const PassMoment& moment) {
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
