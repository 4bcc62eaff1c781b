// Stands in for the simulator's include folder until it builds as a library of its own.
#pragma once

#include "../../tools/sensor_simulator/command_service.h"
