// The part of the command line that makes the command service faulty.
#pragma once

#include "sensor_simulator/command_service.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kerul::lidar::simulator {

// One option for each member of the record. All of them need `rcx_port`. The parsing writes into
// `faults`, which must live until then.
void AddServiceFaultOptions(CLI::App& app, CLI::Option* rcx_port, ServiceFaults& faults);

}  // namespace kerul::lidar::simulator
