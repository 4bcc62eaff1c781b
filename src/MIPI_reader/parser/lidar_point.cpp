#include "MIPI_reader/parser/lidar_point.h"

#include "MIPI_reader/parser/record_copy.h"

namespace kerul::lidar {

std::int32_t LidarPoint::echo_num = 1;

void LidarPoint::ResetEchoes() noexcept {
  static constexpr LidarPoint kDefault{};
  pixel_word22 = kDefault.pixel_word22;
  pixel_word11 = kDefault.pixel_word11;
  shot_times = kDefault.shot_times;
  shot_ratio = kDefault.shot_ratio;
  detect_threshold = kDefault.detect_threshold;
  for (int slot = 0; slot < echo_num; ++slot) {
    LidarEcho& echo = echoes[slot];
    const bool debug_flag = echo.debug_flag;
    const float ground_refl_scale = echo.ground_refl_scale;
    CopyRecord<16>(echo, kDefault.echoes[slot]);
    echo.debug_flag = debug_flag;
    echo.ground_refl_scale = ground_refl_scale;
  }
}

LidarFrame::LidarFrame(std::int32_t rows, std::int32_t cols, std::int32_t echoes)
    : height(rows),
      width(cols),
      echo_num(echoes),
      points(static_cast<std::size_t>(rows),
             std::vector<LidarPoint>(static_cast<std::size_t>(cols))),
      pixel_mask(static_cast<std::size_t>((rows / 6) * (cols / 6) * 4), false) {
  LidarPoint::echo_num = echoes;
}

void LidarFrame::Reset() noexcept {
  for (std::vector<LidarPoint>& row : points) {
    for (LidarPoint& point : row) point.ResetEchoes();
  }
  pixel_mask.assign(pixel_mask.size(), false);
  received_count = 0;
}

}  // namespace kerul::lidar
