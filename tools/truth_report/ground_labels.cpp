#include "truth_report/ground_labels.h"

#include "kerul_lidar/point_payload.h"

namespace kerul::lidar::report {
namespace {

std::size_t GroundBandOf(int row) noexcept {
  std::size_t band = 0;
  while (row >= kGroundBandEdges[band + 1]) ++band;
  return band;
}

}  // namespace

GroundBand GroundLabels::All() const noexcept {
  GroundBand sum;
  for (const GroundBand& band : bands) {
    sum.ground += band.ground;
    sum.right += band.right;
    sum.other += band.other;
    sum.wrong += band.wrong;
  }
  return sum;
}

void CountGroundLabels(const simulator::SimulatedFrame& truth, const CollectedFrame& published,
                       GroundLabels& labels) {
  for (int row = 0; row < kFrameRows; ++row) {
    GroundBand& band = labels.bands[GroundBandOf(row)];
    for (int col = 0; col < kFrameCols; ++col) {
      const FramePoint& point = published.At(0, row, col);
      if (point.distance == 0) continue;
      const bool labelled =
          DecodePointPayload(published.key.output_mode, point.payload.data()).ground;
      const simulator::EchoTruth& echo =
          truth.truth[static_cast<std::size_t>(row * kFrameCols + col)][0];
      if (echo.kind != simulator::ReturnKind::kGround) {
        ++band.other;
        if (labelled) ++band.wrong;
        continue;
      }
      ++band.ground;
      if (labelled) ++band.right;
      labels.range_errors_m.push_back(static_cast<double>(published.RangeM(point)) -
                                      static_cast<double>(echo.range_m));
    }
  }
}

}  // namespace kerul::lidar::report
