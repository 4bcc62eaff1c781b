// The two gains of the bloom filter, computed once for each 6 x 6 block and echo slot.
#pragma once

#include <vector>

#include "MIPI_reader/parser/lidar_point.h"
#include "config/bloom_suppress_calib.h"

// 0.5 .. 1.5: how tightly the ranges of the block starting at (first_row, first_col) cluster; a
// small spread raises the gain. `scratch` is the caller's and holds the valid ranges on return.
float BloomDistStdGain(const kerul::lidar::FrameRows& rows, int first_row, int first_col, int echo,
                       const kerul::lidar::BloomSuppressCalib& calib, std::vector<float>& scratch,
                       bool debug);

// 0.4 .. 1.6: marked pixels on the block's edge whose unmarked neighbour continues at the same
// range (closer than `threshold` metres) lower the gain, others raise it. end_row is exclusive.
// The traced pixel is only printed.
float BloomEdgeNeighborGain(const kerul::lidar::FrameRows& rows, int height, int width,
                            int first_row, int end_row, int first_col, int echo, float threshold,
                            int debug_row, int debug_col, bool debug);

// One pair of pixels across an edge: counts it in `match` or `mismatch` and moves `count`.
void BloomCountEdgeNeighbor(const kerul::lidar::FrameRows& rows, int height, int width, int echo,
                            const char* direction, int self_row, int self_col, int neighbor_row,
                            int neighbor_col, int& count, float threshold, int& match,
                            int& mismatch, bool debug);
