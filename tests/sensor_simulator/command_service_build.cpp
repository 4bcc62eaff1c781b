// Compiles the simulator's command service into these tests until it builds as a library of its
// own.
#include "../../tools/sensor_simulator/command_service.cpp"
