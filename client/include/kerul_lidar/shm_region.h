#pragma once
#include "../../../src/output/shm_region.h"
