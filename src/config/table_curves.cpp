#include "config/table_curves.h"

#include <cmath>
#include <cstddef>

namespace kerul::lidar {
namespace {

// One stretch between two known points: its length and its mean slope.
struct Span {
  double run;
  double slope;
};

std::vector<Span> SpansBetween(std::span<const CurvePoint> points) {
  std::vector<Span> spans;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    const double run = points[i + 1].index - points[i].index;
    const double rise =
        static_cast<double>(points[i + 1].value) - static_cast<double>(points[i].value);
    spans.push_back({run, rise / run});
  }
  return spans;
}

// Slope at an inner point: the weighted harmonic mean of both mean slopes (Fritsch and Butland,
// 1984). It is at most three times the smaller one, which is what keeps a cubic monotone (Fritsch
// and Carlson, 1980).
double InnerTangent(const Span& left, const Span& right) {
  if (left.slope * right.slope <= 0.0) return 0.0;
  const double left_weight = left.run + 2.0 * right.run;
  const double right_weight = 2.0 * left.run + right.run;
  return (left_weight + right_weight) / (left_weight / left.slope + right_weight / right.slope);
}

// Slope at an end: that of the parabola through the nearest three points, held to the same limits.
double EndTangent(const Span& nearest, const Span& next) {
  const double tangent =
      ((2.0 * nearest.run + next.run) * nearest.slope - nearest.run * next.slope) /
      (nearest.run + next.run);
  if (tangent * nearest.slope <= 0.0) return 0.0;
  if (std::abs(tangent) > 3.0 * std::abs(nearest.slope)) return 3.0 * nearest.slope;
  return tangent;
}

std::vector<double> Tangents(const std::vector<Span>& spans) {
  if (spans.size() == 1) return {spans[0].slope, spans[0].slope};
  std::vector<double> tangents;
  tangents.push_back(EndTangent(spans[0], spans[1]));
  for (std::size_t i = 1; i < spans.size(); ++i) {
    tangents.push_back(InnerTangent(spans[i - 1], spans[i]));
  }
  tangents.push_back(EndTangent(spans[spans.size() - 1], spans[spans.size() - 2]));
  return tangents;
}

// Cubic Hermite form at `t` in 0..1 of a stretch that starts at `value`. Written as an offset from
// the start so that a flat stretch stays exactly flat.
double HermiteAt(double t, double value, const Span& span, double tangent, double next_tangent) {
  const double rise_share = t * t * (3.0 - 2.0 * t);
  const double bend = t * (1.0 - t) * (1.0 - t) * tangent - t * t * (1.0 - t) * next_tangent;
  return value + span.run * (span.slope * rise_share + bend);
}

}  // namespace

std::vector<float> FillCurve(std::span<const CurvePoint> points, int length) {
  const std::vector<Span> spans = SpansBetween(points);
  const std::vector<double> tangents = Tangents(spans);
  std::vector<float> table(static_cast<std::size_t>(length), points.back().value);
  for (std::size_t i = 0; i < spans.size(); ++i) {
    for (int index = points[i].index; index < points[i + 1].index; ++index) {
      const double t = (index - points[i].index) / spans[i].run;
      table[static_cast<std::size_t>(index)] = static_cast<float>(HermiteAt(
          t, static_cast<double>(points[i].value), spans[i], tangents[i], tangents[i + 1]));
    }
  }
  return table;
}

std::vector<float> SpreadWholeSteps(std::span<const CurvePoint> points) {
  std::vector<float> table;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    const int run = points[i + 1].index - points[i].index;
    const int start = static_cast<int>(points[i].value);
    const int rise = static_cast<int>(points[i + 1].value) - start;
    for (int k = 0; k < run; ++k) {
      const int risen = (rise * k + run / 2) / run;
      table.push_back(static_cast<float>(start + risen));
    }
  }
  table.push_back(points.back().value);
  return table;
}

std::vector<float> ExpandRuns(std::span<const ValueRun> runs) {
  std::vector<float> table;
  for (const ValueRun& run : runs) {
    table.insert(table.end(), static_cast<std::size_t>(run.count), run.value);
  }
  return table;
}

}  // namespace kerul::lidar
