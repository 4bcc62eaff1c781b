#include "MIPI_reader/node/point_calibration/packet_calibrator.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>

#include "MIPI_reader/parser/raw_packet.h"
#include "lanes/instruction_set.h"

namespace kerul::lidar {
namespace {

using VectorForm = void (*)(const CalibrationTables&, PacketPlanes&) noexcept;
constexpr VectorForms<VectorForm> kForms{CalibratePlanesPlain, CalibratePlanesAvx2,
                                         CalibratePlanesAvx512};

void AppendCurve(std::span<const float> curve, std::vector<ValueStep>& steps) {
  steps.push_back({curve.front(), curve.front() - curve.front()});
  for (std::size_t i = 0; i + 1 < curve.size(); ++i) {
    steps.push_back({curve[i], curve[i + 1] - curve[i]});
  }
  steps.push_back({curve.back(), -0.0F});
}

// What is read beside the last entry, and not used.
constexpr ValueStep kAfterLast{};

// The divisions that the scalar form does for every echo.
std::vector<ValueStep> EfficiantSteps(std::span<const float> table) {
  std::vector<ValueStep> steps;
  for (std::size_t i = 0; i < table.size(); ++i) {
    const std::size_t next = i + kEfficiantCols;
    const auto row = static_cast<int>(i) / kEfficiantCols;
    const float lo = static_cast<float>(row) * 0.1F;
    const float hi = 0.1F * static_cast<float>(row + 1);
    steps.push_back({table[i], next < table.size() ? (table[next] - table[i]) / (hi - lo) : 0.0F});
  }
  return steps;
}

// Of pixels in the table, 0 <= row, col < kPlaceSide: the inverse of PlacePixel, 1728 pixels for
// each miniflash row and 432 for each column slot.
constexpr std::int32_t PacketOrderIndex(std::int32_t row, std::int32_t col) noexcept {
  const std::int32_t pixel_id =
      col / 24 + 12 * (row % 3 + 3 * (col % 3)) + 108 * (row % 6 / 3) + 216 * (col % 6 / 3);
  return row / 6 * 1728 + col % 24 / 6 * 432 + pixel_id;
}

PixelPlaces MakePixelPlaces() {
  PixelPlaces places{};
  for (int i = 0; i < static_cast<int>(kPlaceSide); ++i) {
    places.of_row[i] = {PacketOrderIndex(i, 0), i % kEfficiantCols};
    places.of_col[i] = PacketOrderIndex(0, i);
  }
  return places;
}

// From a table in tile order to one in packet order.
void TakePixels(std::span<const float> table, float PixelCalib::*member,
                std::vector<PixelCalib>& pixels) {
  for (int row = 0; row < static_cast<int>(kPlaceSide); ++row) {
    for (int col = 0; col < static_cast<int>(kPlaceSide); ++col) {
      pixels[static_cast<std::size_t>(PacketOrderIndex(row, col))].*member =
          table[static_cast<std::size_t>(TileOrderIndex(row, col))];
    }
  }
}

// No step changes such an echo. A range of -0 becomes 0.
bool IsEmpty(const LidarEcho& echo) noexcept {
  return std::bit_cast<std::uint32_t>(echo.dist_raw) == 0 && !echo.highRefl;
}

// The fields that the calibration writes.
void StoreEcho(const PacketPlanes& planes, int at, LidarEcho& echo) noexcept {
  echo.dist_raw = planes.dist_raw[at];
  echo.refl_raw = planes.refl_raw[at];
  echo.cogh = planes.cogh[at];
  echo.power = planes.power[at];
  echo.highRefl = planes.highRefl[at] != 0;
  echo.afterPulse = planes.afterPulse[at] != 0;
}

bool HasTracedPixel(const HighReflCheck& check) noexcept {
  return check.trace_enable && check.trace_row >= 0 && check.trace_col >= 0;
}

}  // namespace

std::int32_t NearestPixelEntry(std::int32_t row, std::int32_t col) noexcept {
  const int entry = std::clamp(TileOrderIndex(row, col), 0, kPixelTableEntries - 1);
  // Back from the tile order.
  const int tile = entry / 36;
  return PacketOrderIndex(tile / 48 * 6 + entry % 6, tile % 48 * 6 + entry % 36 / 6);
}

void CalibratePacket(const CalibrationSteps& steps, std::vector<LidarPoint>& points) {
  if (steps.env != nullptr) CompensateEnvironment(*steps.env, points);
  if (steps.dist != nullptr) CalibrateRange(*steps.dist, points);
  if (steps.high_threshold_map != nullptr) {
    MapHighThresholdHeights(*steps.high_threshold_map, points);
  }
  if (steps.high_refl_check != nullptr && steps.high_refl_check->enable) {
    CheckHighReflectivity(*steps.high_refl_check, points);
  }
  if (steps.retro != nullptr) steps.retro->calib_points(points);
}

PacketCalibrator::PacketCalibrator(const CalibrationSteps& steps)
    : steps_(steps), places_(MakePixelPlaces()), pixels_(kPixelTableEntries) {
  tables_.places = &places_;
  tables_.pixels = pixels_.data();
  if (steps.env != nullptr) TakeEnv(*steps.env);
  if (steps.dist != nullptr) TakeDist(*steps.dist);
  tables_.high_threshold_map = steps.high_threshold_map;
  if (steps.high_refl_check != nullptr && steps.high_refl_check->enable) {
    TakeCheck(*steps.high_refl_check);
  }
  if (steps.retro != nullptr) TakeRetro(*steps.retro);
}

void PacketCalibrator::TakeEnv(const EnvCalib& env) {
  gains_ = env.env_cogh;
  gains_.insert(gains_.end(), env.env_cogh_high.begin(), env.env_cogh_high.end());
  tables_.gains = gains_.data();
  tables_.low_gains = static_cast<std::int32_t>(env.env_cogh.size());
  tables_.high_gains = static_cast<std::int32_t>(env.env_cogh_high.size());
  tables_.bias = env.bias;
  tables_.has_cogt = env.has_cogt;
  tables_.cogt_a = env.cogt_a;
  tables_.cogt_b = env.cogt_b;
  tables_.cogt_c = env.cogt_c;
  tables_.cogt_d = env.cogt_d;
}

void PacketCalibrator::TakeDist(const DistCalib& dist) {
  AppendCurve(dist.curve, range_curves_);
  if (dist.has_curve_high) {
    tables_.high_curve = kCurveSteps;
    AppendCurve(dist.curve_high, range_curves_);
  }
  range_curves_.push_back(kAfterLast);
  tables_.range_curves = range_curves_.data();
  TakePixels(dist.offset, &PixelCalib::offset, pixels_);
  tables_.range_scale = dist.scale;
}

void PacketCalibrator::TakeCheck(const HighReflCheck& check) {
  tables_.high_refl_check = &check;
  tables_.lowest_rule_height = std::numeric_limits<float>::infinity();
  const auto take = [this](bool enable, float height) {
    // A NaN, which no height exceeds, stays out of this as well.
    if (enable && height < tables_.lowest_rule_height) tables_.lowest_rule_height = height;
  };
  take(check.rule_a_enable, check.rule_a_height);
  take(check.rule_b_enable, check.rule_b_height);
  take(check.rule_c_enable, check.rule_c_height);
  take(check.rule_d_enable, check.rule_d_height);
}

void PacketCalibrator::TakeRetro(const RetroCalib& retro) {
  AppendCurve(retro.retro_curve, power_curve_);
  power_curve_.push_back(kAfterLast);
  tables_.power_curve = power_curve_.data();
  TakePixels(retro.retro_scale, &PixelCalib::scale, pixels_);
  tables_.ref_distance = retro.ref_distance;
  tables_.ref_offset = retro.ref_offset;
  tables_.nearest_log =
      static_cast<float>(std::log2(0.3 / static_cast<double>(retro.ref_distance)));
  if (retro.cogh_efficiant_valid) {
    efficiant_ = EfficiantSteps(retro.cogh_efficiant);
    efficiant_.push_back(kAfterLast);
    tables_.efficiant = efficiant_.data();
  }
  if (retro.retro_filter_valid) tables_.retro_filter = retro.retro_filter.data();
  tables_.near_refl_enable = retro.high_refl_check.near_refl_enable;
  tables_.near_refl_range = retro.high_refl_check.near_refl_range;
  traces_ = HasTracedPixel(retro.high_refl_check);
}

bool PacketCalibrator::FitsLanes() const noexcept {
  return !traces_ && LidarPoint::echo_num >= 1 && LidarPoint::echo_num <= kEchoSlots &&
         kForms.Chosen() != nullptr;
}

void PacketCalibrator::Calibrate(std::vector<LidarPoint>& points) const {
  if (!FitsLanes()) {
    CalibratePacket(steps_, points);
    return;
  }
  const std::span<LidarPoint> all(points);
  for (std::size_t first = 0; first < all.size(); first += PacketPlanes::kPixels) {
    CalibrateInPlanes(
        all.subspan(first, std::min<std::size_t>(PacketPlanes::kPixels, all.size() - first)));
  }
}

void PacketCalibrator::Calibrate(PacketPlanes& planes) const noexcept {
  kForms.Chosen()(tables_, planes);
}

void PacketCalibrator::Prefetch(std::int32_t row, std::int32_t col) const noexcept {
  if (static_cast<std::uint32_t>(row) >= kPlaceSide ||
      static_cast<std::uint32_t>(col) >= kPlaceSide) {
    return;
  }
  const std::int32_t entry = places_.of_row[row].entry + places_.of_col[col];
  const std::int32_t last = std::min(entry + raw_packet::kBlocks, kPixelTableEntries) - 1;
  __builtin_prefetch(pixels_.data() + entry);
  __builtin_prefetch(pixels_.data() + last);
}

void PacketCalibrator::CalibrateInPlanes(std::span<LidarPoint> points) const noexcept {
  PacketPlanes planes;
  LidarEcho* echoes[PacketPlanes::kWindows] = {};
  planes.pixel_count = static_cast<int>(points.size());
  planes.window_count = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    planes.row[i] = points[i].row;
    planes.col[i] = points[i].col;
  }
  for (int slot = 0; slot < LidarPoint::echo_num; ++slot) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      LidarEcho& echo = points[i].echoes[slot];
      if (slot == 1 && tables_.high_refl_check != nullptr) echo.afterPulse = false;
      if (IsEmpty(echo)) continue;
      const int at = planes.window_count++;
      echoes[at] = &echo;
      planes.window[at] = slot * PacketPlanes::kPixels + static_cast<int>(i);
      TakeEcho(echo, at, planes);
    }
  }
  Calibrate(planes);
  for (int at = 0; at < planes.window_count; ++at) StoreEcho(planes, at, *echoes[at]);
}

}  // namespace kerul::lidar
