// The settings of a further node (KERUL_NODES in cmake/Nodes.cmake), for a second sensor on one
// computer. lidar_node itself has the defaults.
#pragma once

#include "config/default_config.h"

namespace kerul::lidar {

// Defined by the node's own file, called once at its start. `config` holds the defaults, except
// that lidar_name is the node's name and shm_name ends in "_" and that name. To change at least:
// lidar_ip and recv_port, since each sensor has its own address and each node its own port.
void ChangeSettings(DefaultConfig& config);

}  // namespace kerul::lidar
