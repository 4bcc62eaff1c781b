// How tables that are known by a few points get their values in between.
#pragma once

#include <span>
#include <vector>

namespace kerul::lidar {

// A table entry whose value is known.
struct CurvePoint {
  int index;
  float value;
};

// A value that stands `count` times in a row.
struct ValueRun {
  float value;
  int count;
};

// Table of `length` entries on a piecewise cubic through `points` (at least two, index strictly
// ascending from 0, last index length - 1 or below). Every point is hit exactly. The slope is
// continuous. The curve is monotone between neighbouring points, and flat at a point that lies
// higher or lower than both its neighbours. So it never overshoots, and two equal points make a
// plateau. Entries after the last point keep its value.
std::vector<float> FillCurve(std::span<const CurvePoint> points, int length);

// Whole numbers through `points` (whole values that never fall, index strictly ascending from 0),
// spread so that neighbouring entries differ by the mean slope of their span, rounded down or up:
// a span that rises by at most 1 an entry has steps of 0 and 1 only. Ends at the last point.
std::vector<float> SpreadWholeSteps(std::span<const CurvePoint> points);

// The runs one after another.
std::vector<float> ExpandRuns(std::span<const ValueRun> runs);

}  // namespace kerul::lidar
