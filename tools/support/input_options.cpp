#include "support/input_options.h"

#include "support/number_options.h"

namespace kerul::lidar {

void AddInputOptions(CLI::App& app, std::string& shm_name, int& udp_port,
                     std::string& multicast_group) {
  auto* shm = app.add_option("--shm", shm_name,
                             "Read the shared-memory ring of this name (default "
                             "kerul_lidar_udp_shm)");
  auto* udp = app.add_option("--udp", udp_port, "Read UDP packets from this port instead")
                  ->check(WholeNumber(1, 65535))
                  ->excludes(shm);
  app.add_option("--group", multicast_group, "Join this multicast group (with --udp)")->needs(udp);
}

}  // namespace kerul::lidar
