#include "lidar_web/server_state.h"

#include <libwebsockets.h>
#include <unistd.h>

namespace kerul::lidar::web {

std::int64_t SystemClockUs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

void ServerState::LookAround() {
  if (node_log) {
    node_log->Look();
    figures_of_host.before_host = node_log->BeforeHost();
  }
  figures_of_host.kernel_drops = host->KernelDrops();
  figures_of_host.node = host->Node();
  figures_of_host.clock_us = SystemClockUs();
}

void ServerState::MakeFigures() {
  LookAround();
  const std::string text =
      FormatFigures(reader->Figures(), figures_of_host, std::chrono::steady_clock::now());
  figures.assign(LWS_PRE, '\0');
  figures.insert(figures.end(), text.begin(), text.end());
  ++figures_number;
}

std::string ServerState::Metrics() {
  LookAround();
  figures_of_host.self = HostWatch::Figures(getpid());
  return FormatMetrics(reader->Figures(), figures_of_host, std::chrono::steady_clock::now());
}

}  // namespace kerul::lidar::web
