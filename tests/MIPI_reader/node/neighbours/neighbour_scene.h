// A pixel and the ring around it, for the tests of the neighbour validation.
#pragma once

#include <cstddef>
#include <vector>

#include "MIPI_reader/node/neighbours/neighbour_validation.h"
#include "support/frame_builder.h"

namespace kerul::lidar::frame_builder {

// One pixel at (1, 2) of a 3 x 5 grid with its ring; only the middle row is run. The pixel left of
// it is scanned before, so it gets company in column 0 that keeps it alive.
struct NeighbourScene {
  FrameRows rows = MakeRows(3, 5);

  LidarPoint& Centre() { return rows[1][2]; }
  // Entry i of group A for i 0..3, of group B for 4..7.
  LidarPoint& Neighbour(int i) {
    const int dr = i < 4 ? kGrpADr[i] : kGrpBDr[i - 4];
    const int dc = i < 4 ? kGrpADc[i] : kGrpBDc[i - 4];
    return rows[static_cast<std::size_t>(1 + dr)][static_cast<std::size_t>(2 + dc)];
  }
  void SetNeighbour(int i, float dist, float refl = 10.0F, float peak_ratio = 1.5F) {
    SetEcho(Neighbour(i).echoes[0], dist, refl, peak_ratio);
    if (i != 3) return;
    for (std::vector<LidarPoint>& line : rows) SetEcho(line[0].echoes[0], dist);
  }
  void SetNeighbours(int count, float dist, float refl = 10.0F) {
    for (int i = 0; i < count; ++i) SetNeighbour(i, dist, refl);
  }
  LidarEcho& Run() {
    ValidateNeighbours(rows, 1, 1);
    return Centre().echoes[0];
  }
};

}  // namespace kerul::lidar::frame_builder
