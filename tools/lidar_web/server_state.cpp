#include "lidar_web/server_state.h"

#include <libwebsockets.h>
#include <unistd.h>

#include "lidar_web/system_clock.h"

namespace kerul::lidar::web {

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
