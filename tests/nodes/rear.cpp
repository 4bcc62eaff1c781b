#include "config/node_settings.h"

void kerul::lidar::ChangeSettings(DefaultConfig& config) {
  config.lidar_ip = "192.168.10.162";
  config.recv_port = 2372;
}
