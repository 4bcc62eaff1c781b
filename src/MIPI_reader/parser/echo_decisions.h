// What the echo computation decides about a window: a record for each decision, with both sides of
// its comparisons. Positions in samples of the window, widths in bins, levels in level units of the
// packet's number of shots, as they stand before the division by shot_ratio.
#pragma once

#include <array>

#include "MIPI_reader/parser/echo_rules.h"

namespace kerul::lidar::echo_computation {

using Window = std::array<float, kWindowSamples>;
// sums[k] is centred on sample k, level units above baseline; sums[0] = sums[16] = 0.
using Sums = std::array<float, kSums>;

// Where the pulse crosses a threshold, in sample positions.
struct Edges {
  float threshold;
  int left;    // last sum at or below the threshold before the pulse
  int right;   // first one after it
  float from;  // crossing between left and left + 1
  float to;    // crossing between right - 1 and right
};

struct Centroid {
  float centre;  // samples
  float height;  // level units
};

// The width curves at a pulse's normalised peak.
struct CurvePoint {
  int index = -1;  // entry read, -1 without curves
  float low = 0.0F;
  float gate = 0.0F;
  float high = 0.0F;
};

// The baseline is looked at further when the head's level is above it: rise > 0.
struct HeadRise {
  int samples;     // at the window's head
  float reported;  // baseline from the packet's noise
  float mean;      // of the head, as a three-bin sum
  float rise;      // mean - reported
};

// The baseline follows the head when the centre holds a real pulse: pulse > gate.
struct RisePulse {
  float pulse;  // three-bin sum at the centre above the head's mean
  float gate;
};

// By how much it follows: the smaller of wanted and limit. A rise above `bright` sets highRefl.
struct BaselineRise {
  float wanted;
  float limit;
  float add;
  float noise_add;  // the same in raw units of noise
  float bright;
};

// Samples above `level` outside the run around the highest one are cut down to it. When the
// highest is not above it, none is.
struct SidePeakClip {
  float level;
  int highest;  // sample
};

// The window after the cut and its sums.
struct PulseShape {
  const Window& window;
  const Sums& sums;
  float baseline;
};

// A pulse is taken when ratio is above kNearMissRatio or negative, and is a sure one above
// kSureRatio or negative.
struct Detection {
  float baseline;
  float peak;   // above zero
  float level;  // the detection level
  float ratio;  // (peak - baseline) / (level - baseline)
  bool sure;
};

// A width is measured at the larger of the noise's level and a share of the centre's sum. The edges
// there are told before.
struct LowWidth {
  float noise_level;
  float share;  // a fifth
  float width;
  CurvePoint curve;  // width below curve.low sets kBelowLowCurve
};

// Mode 1 always measures the high width; mode 2 when width > gate + kCurveTolerance. A high width
// is told next when it is measured.
struct HighWidthWish {
  int mode;
  float width;  // the low one
  bool has_gate;
  float gate;  // of the curve
};

struct HighWidth {
  float noise_level;
  float share;  // two thirds
  float width;
  bool has_limit;
  float limit;  // width above limit + kCurveTolerance sets kAboveHighCurve
};

struct RawRange {
  Centroid centroid;
  float first_bin;
  float range;  // metres
};

enum class WidePulseFate { kKept, kDropped, kParabola };

// The high width and the height against the limits of a pulse that is too wide: dropped from
// limit + kDropWidth on when higher than kDropHeight, else ranged by a parabola between limit +
// kCurveTolerance and limit + kDropWidth.
struct WidePulse {
  float width;
  float limit;
  float height;  // at 160 shots
  WidePulseFate fate;
  float vertex;  // of the parabola, else 0
};

}  // namespace kerul::lidar::echo_computation
