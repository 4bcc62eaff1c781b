#pragma once
#include "../../../src/output/shm_layout.h"
