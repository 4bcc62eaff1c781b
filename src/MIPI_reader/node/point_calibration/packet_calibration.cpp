#include "MIPI_reader/node/point_calibration/packet_calibration.h"

#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibration_scalar.h"

namespace kerul::lidar {
namespace {

// The node tells nobody what it decides. All of it compiles to nothing.
struct NoTeller {
  static void HeightGain(const point_calibration::HeightGain&) noexcept {}
  static void BackgroundShift(const point_calibration::BackgroundShift&) noexcept {}
  static void RangeCorrection(const point_calibration::RangeCorrection&) noexcept {}
  static void RangeLoss(const point_calibration::RangeLoss&) noexcept {}
  static void HeightMapping(const point_calibration::HeightMapping&) noexcept {}
};

}  // namespace

EnvCalib::EnvCalib(std::vector<float> cogh, std::vector<float> cogh_high, std::vector<float> cogt,
                   float height_bias)
    : env_cogh(std::move(cogh)),
      env_cogh_high(std::move(cogh_high)),
      env_cogt(std::move(cogt)),
      bias(height_bias) {
  if (env_cogh.empty() || env_cogh_high.empty()) {
    throw std::runtime_error("Invalid env cogh calib data (empty)");
  }
  if (env_cogt.empty()) return;
  if (env_cogt.size() != 4) throw std::runtime_error("Invalid env cogt calib data (expect size 4)");
  cogt_a = env_cogt[0];
  cogt_b = env_cogt[1];
  cogt_c = env_cogt[2];
  cogt_d = env_cogt[3];
  has_cogt = true;
}

DistCalib::DistCalib(std::vector<float> low_curve, std::vector<float> pixel_offset,
                     std::vector<float> high_curve)
    : curve(std::move(low_curve)),
      offset(std::move(pixel_offset)),
      curve_high(std::move(high_curve)),
      has_curve_high(!curve_high.empty()) {
  if (curve.size() != kCurveEntries || offset.size() != kPixelTableEntries) {
    std::cout << "[INFO] dist_curve.size()=" << curve.size() << '\n'
              << "[INFO] dist_offset.size()=" << offset.size() << '\n';
    throw std::runtime_error("Invalid dist calib data (expect curve=512, offset=288*288)");
  }
  if (has_curve_high && curve_high.size() != kCurveEntries) {
    throw std::runtime_error("Invalid dist curve high vector (expect 512, got " +
                             std::to_string(curve_high.size()) + ")");
  }
}

HighThresholdMap::HighThresholdMap(std::vector<float> in, std::vector<float> out)
    : cogh_in(std::move(in)), cogh_out(std::move(out)) {
  if (cogh_in.size() < 2 || cogh_in.size() != cogh_out.size()) {
    throw std::runtime_error("Invalid high-threshold cogh mapping data");
  }
}

float MapHighThresholdHeight(const HighThresholdMap& map, float height) noexcept {
  return point_calibration::MapHeight(map, height).mapped;
}

void CompensateEnvironment(const EnvCalib& calib, std::span<LidarPoint> points) noexcept {
  NoTeller nobody;
  for (LidarPoint& point : points) {
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      point_calibration::CompensateEcho(calib, point.echoes[slot], nobody);
    }
  }
}

void CalibrateRange(const DistCalib& calib, std::span<LidarPoint> points) noexcept {
  NoTeller nobody;
  for (LidarPoint& point : points) {
    const float offset = PixelTableEntry(calib.offset, point.row, point.col);
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      point_calibration::CalibrateEchoRange(calib, offset, point.echoes[slot], nobody);
    }
  }
}

void MapHighThresholdHeights(const HighThresholdMap& map, std::span<LidarPoint> points) noexcept {
  NoTeller nobody;
  for (LidarPoint& point : points) {
    for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
      point_calibration::MapEchoHeight(map, point.echoes[slot], nobody);
    }
  }
}

}  // namespace kerul::lidar
