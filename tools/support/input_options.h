// Where a program's packets come from, as all programs spell it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kerul::lidar {

// Adds --shm, --udp and --group. The values must outlive the parsing: an empty ring name is the
// default ring, port 0 the ring, an empty group none.
void AddInputOptions(CLI::App& app, std::string& shm_name, int& udp_port,
                     std::string& multicast_group);

}  // namespace kerul::lidar
