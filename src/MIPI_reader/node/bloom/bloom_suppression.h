// Marks and removes the false returns around highly reflective targets.
#pragma once

#include <cstdint>

#include "MIPI_reader/node/bloom/bloom_trace.h"
#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

namespace kerul::lidar {

// Pixel rows in which a call looks for sources.
inline constexpr int kBloomRowsSeen = 18;

// Works in place on miniflash row `m_row` (six pixel rows) of the frame. Marks weak echoes at the
// range of a nearby source. With filter_enable it then lowers their reflectivity by the power
// spilled into them, or erases them. Sources are read up to one miniflash row above and below.
// Writes highReflBlooming, dist_proc, refl_proc.
// possible_rows: which of the kBloomRowsSeen pixel rows from 6 (m_row - 1) on may hold an echo 0
// with highRefl, bit 0 the first; the others are not searched for sources. All bits when unknown.
void SuppressBlooming(LidarFrame& frame, int m_row, const BloomSuppressCalib& calib,
                      bool filter_enable, const BloomTrace& trace,
                      std::uint32_t possible_rows = ~std::uint32_t{0});

}  // namespace kerul::lidar
