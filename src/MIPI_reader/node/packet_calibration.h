// The calibration steps of a packet. Kept here for those who include it by this path.
#pragma once

#include "MIPI_reader/node/point_calibration/packet_calibration.h"
