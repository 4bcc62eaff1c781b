// The robust plane fit. Kept here for those who include it by this path.
#pragma once

#include "MIPI_reader/node/ground/ground_plane.h"
