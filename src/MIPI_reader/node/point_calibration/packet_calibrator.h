// All calibration steps of a packet in one call. The records come out as if the steps of
// packet_calibration.h had run one after the other.
#pragma once

#include <span>
#include <vector>

#include "MIPI_reader/node/point_calibration/calibration_tables.h"
#include "MIPI_reader/node/point_calibration/packet_calibration.h"
#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar {

// The steps' objects; a null pointer leaves a step out, and so does a check without `enable`.
struct CalibrationSteps {
  const EnvCalib* env = nullptr;
  const DistCalib* dist = nullptr;
  const HighThresholdMap* high_threshold_map = nullptr;
  const HighReflCheck* high_refl_check = nullptr;
  const RetroCalib* retro = nullptr;
};

// The scalar form: the steps in turn, each over all points.
void CalibratePacket(const CalibrationSteps& steps, std::vector<LidarPoint>& points);

// Derives the tables of the vector forms from the steps' objects once. The objects must outlive it
// and stay as they are.
class PacketCalibrator {
 public:
  explicit PacketCalibrator(const CalibrationSteps& steps);
  PacketCalibrator(const PacketCalibrator&) = delete;
  PacketCalibrator& operator=(const PacketCalibrator&) = delete;

  // Any number of points, any place. Allocates nothing.
  void Calibrate(std::vector<LidarPoint>& points) const;

  // The same over a packet that has not become records yet. Only where FitsLanes: the forms for
  // lanes do it, and they print no trace.
  void Calibrate(PacketPlanes& planes) const noexcept;
  bool FitsLanes() const noexcept;

  // Asks for what the tables hold of a packet's pixels: the one at this place and the eight that
  // packets bring after it. Any place.
  void Prefetch(std::int32_t row, std::int32_t col) const noexcept;

 private:
  // At most PacketPlanes::kPixels points.
  void CalibrateInPlanes(std::span<LidarPoint> points) const noexcept;
  void TakeEnv(const EnvCalib& env);
  void TakeDist(const DistCalib& dist);
  void TakeCheck(const HighReflCheck& check);
  void TakeRetro(const RetroCalib& retro);

  CalibrationSteps steps_;
  bool traces_ = false;  // a traced pixel is printed by the scalar form
  PixelPlaces places_;
  std::vector<PixelCalib> pixels_;
  std::vector<float> gains_;
  std::vector<ValueStep> range_curves_;
  std::vector<ValueStep> power_curve_;
  std::vector<ValueStep> efficiant_;
  CalibrationTables tables_;
};

}  // namespace kerul::lidar
