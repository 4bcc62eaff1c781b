// What the calibration steps read and decide about an echo: a record for each decision, with both
// sides of its comparison. Ranges in metres, heights in level units at 160 shots.
#pragma once

#include "MIPI_reader/node/point_calibration/pulse_curve.h"

namespace kerul::lidar::point_calibration {

// ---- Environment ----

// height = (bias + before) * gain + before
struct HeightGain {
  bool high;    // from the table for echoes with a valid high width
  float noise;  // raw units; its whole part is the index, as far as the table reaches
  int index;
  float gain;
  float bias;
  float before;
  float height;
};

struct BackgroundShift {
  float noise_term;
  float before;
  float range;
};

// ---- Range ----

// range = before - (curve + offset) * scale / 64; one below 0 becomes 0.004.
struct RangeCorrection {
  bool high;  // from the curve for echoes with a valid high width
  float height;
  CurveReading curve;
  float offset;
  float scale;
  float before;
  float corrected;  // before the lower limit
  float range;
};

// An echo loses its range for an offset of 0 (a pixel without calibration) or a height that is
// none.
struct RangeLoss {
  float before;
  float height;
  float offset;
};

// ---- Heights of the high threshold ----

// Between the entries `below` and `below + 1` of the map; outside, the nearest entry's output.
struct HeightMapping {
  bool inside;
  int below;
  float in_below;
  float in_above;
  float out_below;
  float out_above;
  float mapped;
};

// ---- High reflectivity ----

enum class HighReflRule { kBaselineRise, kA, kB, kC, kD };

enum class HighReflSide { kHeight, kRange, kGap, kFromDouble, kSecondHeight, kSecondRms };

// A comparison of the rule told last: holds when above < value <= up_to.
struct HighReflComparison {
  HighReflSide side;
  float value;
  float above;
  float up_to;
  bool holds;
};

// The flags left by the rule told last, or by none.
struct HighReflVerdict {
  bool by_rule;
  bool high_refl;    // of echo 0
  bool after_pulse;  // of echo 1
};

// ---- Reflectivity ----

// The correction of near ranges: row -1 when there is none.
struct NearTerm {
  int row = -1;
  int lane = 0;
  float value = 0.0F;
};

// exponent = 2 range_log + curve - scale - ref_offset + near; reflectivity = 2^exponent, at most
// 255.
struct ReflectivityMeasure {
  float range;
  float range_log;
  float height;
  CurveReading curve;
  float scale;
  float ref_offset;
  NearTerm near;
  float exponent;
  float measured;
  float reflectivity;
  float power;
};

// A bright target's reflectivity is set to 255 and its power by range alone.
struct BrightOverride {
  int row;
  int col;
  int slot;
  float range;
  float height;
  float reflectivity;  // as measured
  float power;         // as measured
  float bright_power;
};

// Above 100 only a tenth counts, for ranges below `near_range`.
struct NearSoftening {
  float range;
  float near_range;
  float before;
  float reflectivity;
};

// An echo below the floor is erased: floor > reflectivity.
struct ReflectivityFloor {
  int entry;  // the lower one
  float floor;
  float range;
  float reflectivity;
};

}  // namespace kerul::lidar::point_calibration
