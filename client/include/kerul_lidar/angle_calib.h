#pragma once
#include "../../../src/calibration/angle_calib.h"
