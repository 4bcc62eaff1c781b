// The scenes built into the simulator.
#pragma once

#include <string>
#include <vector>

#include "sensor_simulator/scene.h"

namespace kerul::lidar::simulator {

// Names that MakeScene knows: street, retro, noise, crosstalk, targets, empty.
std::vector<std::string> SceneNames();

// Throws std::invalid_argument for a name that is not known.
Scene MakeScene(const std::string& name);

}  // namespace kerul::lidar::simulator
