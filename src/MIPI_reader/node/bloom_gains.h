// The gains of the bloom filter. Kept here for those who include it by this path.
#pragma once

#include "MIPI_reader/node/bloom/bloom_gains.h"
