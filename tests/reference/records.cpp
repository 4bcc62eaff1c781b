#include "reference/records.h"

namespace reference {
namespace {

void ResetEcho(LidarEcho& echo) {
  echo.dist_raw = 0.0F;
  echo.refl_raw = 0.0F;
  echo.dist_proc = 0.0F;
  echo.refl_proc = 0.0F;
  echo.cogh = 0.0F;
  echo.cogw = 0.0F;
  echo.cogw_high = 0.0F;
  echo.waveform_rms_ratio = 0.0F;
  echo.conf = 0.0F;
  echo.echosum = 0.0F;
  echo.totsum = 0.0F;
  echo.echo_flags = 0;
  echo.cogw_flag = 0;
  echo.peak = 0.0F;
  echo.peak_ratio = 0.0F;
  echo.peak_addr = 0;
  echo.power = 0.0F;
  echo.noise = 0.0F;
  echo.baseline = 0.0F;
  echo.change_noise_noise_append = 0.0F;
  echo.timming_th = 0.0F;
  echo.highRefl = false;
  echo.highReflBlooming = false;
  echo.afterPulse = false;
  // debug_flag stays.
  echo.ground = false;
  echo.fill_point = false;
  echo.shot_noise_point = false;
  // ground_refl_scale stays.
  echo.shot_noise_group_point = false;
  echo.detect_pass = true;
  for (int i = 0; i < 17; ++i) echo.bins[static_cast<std::size_t>(i)] = 0;
}

}  // namespace

void ResetPoint(LidarPoint& point) {
  // row and col stay.
  point.pixel_word22 = 0.0F;
  point.pixel_word11 = 0.0F;
  point.shot_times = 160.0F;
  point.shot_ratio = 1.0F;
  point.detect_threshold = 0.0F;
  for (int slot = 0; slot < LidarPoint::echo_num; ++slot) ResetEcho(point.echoes[slot]);
}

LidarFrame MakeFrame(int height, int width, int echo_num) {
  LidarFrame frame;
  frame.height = height;
  frame.width = width;
  frame.echo_num = echo_num;
  const std::vector<LidarPoint> row(static_cast<std::size_t>(width));
  frame.points.assign(static_cast<std::size_t>(height), row);
  frame.pixel_mask.assign(static_cast<std::size_t>((height / 6) * (width / 6) * 4), false);
  LidarPoint::echo_num = echo_num;
  return frame;
}

void ResetFrame(LidarFrame& frame) {
  for (std::vector<LidarPoint>& row : frame.points) {
    for (LidarPoint& point : row) ResetPoint(point);
  }
  for (std::size_t i = 0; i < frame.pixel_mask.size(); ++i) frame.pixel_mask[i] = false;
  frame.received_count = 0;
}

}  // namespace reference
