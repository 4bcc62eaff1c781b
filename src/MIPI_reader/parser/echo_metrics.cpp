#include "MIPI_reader/parser/echo_metrics.h"

#include <string>

namespace kerul::lidar {

void PrintEchoMetrics(std::ostream& out, const EchoMetricsPlace& place, const LidarEcho& echo,
                      std::uint8_t reflectivity_out) {
  out << "[DEBUG] LidarEchoMetrics row=" << place.row << " col=" << place.col
      << " i=" << place.point_index << " echo_idx=" << place.echo << " dist_raw=" << echo.dist_raw
      << " refl_raw=" << echo.refl_raw << " dist_proc=" << echo.dist_proc
      << " refl_proc=" << echo.refl_proc << " cogh=" << echo.cogh << " cogw=" << echo.cogw
      << " cogw_high=" << echo.cogw_high << " conf=" << echo.conf << " echosum=" << echo.echosum
      << " totsum=" << echo.totsum << " echo_flags=" << (echo.echo_flags != 0 ? 1 : 0)
      << " cogw_flag=" << echo.cogw_flag << " peak=" << echo.peak << " peak_addr=" << echo.peak_addr
      << " power=" << echo.power << " noise=" << echo.noise << " baseline=" << echo.baseline
      << " timming_th=" << echo.timming_th
      << " change_noise_noise_append=" << echo.change_noise_noise_append
      << " highRefl=" << echo.highRefl << " highReflBlooming=" << echo.highReflBlooming
      << " afterPulse=" << echo.afterPulse << " debug_flag=" << echo.debug_flag
      << " ground=" << echo.ground << " fill_point=" << echo.fill_point
      << " shot_noise_point=" << echo.shot_noise_point
      << " shot_noise_group_point=" << echo.shot_noise_group_point
      << " detect_pass=" << echo.detect_pass << " bins=[";
  const char* separator = "";
  for (const std::uint16_t bin : echo.bins) {
    out << separator << bin;
    separator = ",";
  }
  out << "] reflectivity_out=" << static_cast<int>(reflectivity_out) << '\n'
      << std::string(100, '-') << '\n';
}

}  // namespace kerul::lidar
