#include "MIPI_reader/parser/packet_planes.h"

namespace kerul::lidar {

void TakeEcho(const LidarEcho& echo, int at, PacketPlanes& planes) noexcept {
  planes.dist_raw[at] = echo.dist_raw;
  planes.refl_raw[at] = echo.refl_raw;
  planes.cogh[at] = echo.cogh;
  planes.cogw[at] = echo.cogw;
  planes.cogw_high[at] = echo.cogw_high;
  planes.waveform_rms_ratio[at] = echo.waveform_rms_ratio;
  planes.cogw_flag[at] = echo.cogw_flag;
  planes.peak[at] = echo.peak;
  planes.peak_ratio[at] = echo.peak_ratio;
  planes.peak_addr[at] = echo.peak_addr;
  planes.power[at] = echo.power;
  planes.window_noise[at] = echo.noise;
  planes.window_baseline[at] = echo.baseline;
  planes.change_noise_noise_append[at] = echo.change_noise_noise_append;
  planes.highRefl[at] = -static_cast<std::int32_t>(echo.highRefl);
  planes.afterPulse[at] = -static_cast<std::int32_t>(echo.afterPulse);
  planes.detect_pass[at] = -static_cast<std::int32_t>(echo.detect_pass);
}

std::uint32_t BrightPixels(const PacketPlanes& planes) noexcept {
  std::uint32_t pixels = 0;
  for (int i = 0; i < planes.window_count && planes.window[i] < PacketPlanes::kPixels; ++i) {
    if (planes.highRefl[i] != 0) pixels |= std::uint32_t{1} << planes.window[i];
  }
  return pixels;
}

}  // namespace kerul::lidar
