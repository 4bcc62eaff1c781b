// What the vector forms of the packet's calibration read: plain numbers and pointers into tables
// that others own. The symbols of the formulas are explained at the objects of the steps.
#pragma once

#include <cstdint>

#include "MIPI_reader/parser/lidar_point.h"
#include "MIPI_reader/parser/packet_planes.h"

namespace kerul::lidar {

struct HighReflCheck;
struct HighThresholdMap;

// An entry of a table and the difference to the next entry. The vector forms read two entries at
// once: after the last one that is asked for stands one more.
struct ValueStep {
  float value;
  float step;
};

// A curve by pulse height as ReadCurve reads it. Entry i of the curve is at i + 1. Before it, for
// heights below 0, is a step from the first entry to itself. The last step is -0: with fraction 0
// it leaves any entry unchanged, also -0.
inline constexpr int kCurveSteps = 513;
inline constexpr int kEfficiantRows = 100;  // by range, in steps of 0.1 m
inline constexpr int kEfficiantCols = 6;    // by pixel row within the miniflash row
inline constexpr int kFilterEntries = 31;   // by range, in steps of 0.1 m

// What the steps know of one pixel; 0 without the step that reads it.
struct PixelCalib {
  float offset;  // of the range
  float scale;   // of the reflectivity
};

// The pixels stand in the order in which packets bring them, so that a packet's nine are
// neighbours: their place is the sum of a part by row and one by column.
inline constexpr std::uint32_t kPlaceSide = 288;
struct PixelPlaces {
  struct Row {
    std::int32_t entry;
    std::int32_t tile_row;  // pixel row within the miniflash row
  };
  Row of_row[kPlaceSide];
  std::int32_t of_col[kPlaceSide];
};
// For a pixel outside, the place of the pixel whose entry PixelTableEntry takes.
std::int32_t NearestPixelEntry(std::int32_t row, std::int32_t col) noexcept;

struct CalibrationTables {
  const PixelPlaces* places = nullptr;
  const PixelCalib* pixels = nullptr;  // kPixelTableEntries

  // Environment: gains by noise, those for echoes without a valid high width in front.
  const float* gains = nullptr;  // null: no such step
  std::int32_t low_gains = 0;    // numbers of entries
  std::int32_t high_gains = 0;
  float bias = 0.0F;
  bool has_cogt = false;
  float cogt_a = 0.0F;
  float cogt_b = 0.0F;
  float cogt_c = 0.0F;
  float cogt_d = 0.0F;

  // Range: one curve or two.
  const ValueStep* range_curves = nullptr;  // null: no such step
  std::int32_t high_curve = 0;              // where the curve for the high threshold begins
  float range_scale = 0.0F;

  const HighThresholdMap* high_threshold_map = nullptr;  // null: no such step

  // High reflectivity.
  const HighReflCheck* high_refl_check = nullptr;  // null: no such step
  float lowest_rule_height = 0.0F;                 // no rule holds at or below it

  // Reflectivity.
  const ValueStep* power_curve = nullptr;  // null: no such step
  float ref_distance = 0.0F;
  float ref_offset = 0.0F;
  float nearest_log = 0.0F;              // of every range up to 0.3 m
  const ValueStep* efficiant = nullptr;  // kEfficiantRows x kEfficiantCols, or null
  bool near_refl_enable = false;
  float near_refl_range = 0.0F;
  const float* retro_filter = nullptr;  // kFilterEntries, or null
};

// Two steps for a single echo and a single pixel, for the few that the vector forms leave.
// `height` not NaN.
float MapHighThresholdHeight(const HighThresholdMap& map, float height) noexcept;
// echo_num as in LidarPoint; afterPulse of echo 1 is cleared first when there are two.
void CheckPixelReflectivity(const HighReflCheck& check, int echo_num, LidarPoint& point) noexcept;

// The instances: all steps over the windows of a packet's planes.
void CalibratePlanesPlain(const CalibrationTables& tables, PacketPlanes& planes) noexcept;
void CalibratePlanesAvx2(const CalibrationTables& tables, PacketPlanes& planes) noexcept;
void CalibratePlanesAvx512(const CalibrationTables& tables, PacketPlanes& planes) noexcept;

}  // namespace kerul::lidar
