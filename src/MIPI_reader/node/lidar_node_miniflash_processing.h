// The row passes, in the order in which a finished miniflash row goes through them.
#pragma once

#include "MIPI_reader/node/bloom/bloom_suppression.h"  // spill around bright targets
#include "MIPI_reader/node/ground/ground_labelling.h"  // labels come first: they widen the next gates
#include "MIPI_reader/node/neighbours/neighbour_validation.h"  // erase, smooth, fill
#include "MIPI_reader/node/rows/echo_ordering.h"               // which echo goes out where
#include "MIPI_reader/node/rows/shot_noise_filter.h"           // blocks that fit nowhere
