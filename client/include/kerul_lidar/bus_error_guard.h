#pragma once
#include "../../../src/output/bus_error_guard.h"
