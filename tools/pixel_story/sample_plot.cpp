#include "pixel_story/sample_plot.h"

#include <cstddef>

namespace kerul::lidar::story {
namespace {

float PerSample(float level) { return level / 3.0F; }

// Where the range came from: the vertex of the parabola where it replaced the centre of gravity.
Plot::Mark RangeMark(const EchoDecisions& told) {
  if (told.wide_pulse && told.wide_pulse->fate == echo_computation::WidePulseFate::kParabola) {
    return {"vertex", told.wide_pulse->vertex};
  }
  return {"centre", told.raw_range->centroid.centre};
}

Plot::Span Width(const char* name, const echo_computation::Edges& edges, float y) {
  return {name, edges.from, edges.to, y};
}

}  // namespace

std::vector<int> CutSamples(const EchoDecisions& told) {
  std::vector<int> cut;
  if (!told.clip) return cut;
  for (std::size_t i = 0; i < told.samples.size(); ++i) {
    if (told.shape->window[i] != static_cast<float>(told.samples[i])) {
      cut.push_back(static_cast<int>(i));
    }
  }
  return cut;
}

Plot PlotOfSamples(const PacketRoad& road, int slot) {
  const EchoDecisions& told = road.echoes[static_cast<std::size_t>(slot)];
  Plot plot;
  plot.x_label = "sample";
  plot.y_label = "counts";
  plot.bars.assign(told.samples.begin(), told.samples.end());
  for (const int sample : CutSamples(told)) plot.marked.push_back(static_cast<std::size_t>(sample));
  const float baseline = told.shape->baseline;
  plot.levels.push_back({"baseline", PerSample(baseline)});
  if (!plot.marked.empty()) plot.levels.push_back({"cut", told.clip->level});
  plot.levels.push_back({"detection level", PerSample(told.detection->level)});
  if (told.low_width) {
    const float low = PerSample(baseline + told.low_edges->threshold);
    plot.levels.push_back({"low threshold", low});
    plot.spans.push_back(Width("width", *told.low_edges, low));
  }
  if (told.high_width) {
    const float high = PerSample(baseline + told.high_edges->threshold);
    plot.levels.push_back({"high threshold", high});
    plot.spans.push_back(Width("high width", *told.high_edges, high));
  }
  if (told.raw_range) plot.marks.push_back(RangeMark(told));
  return plot;
}

Plot PlotOfSums(const EchoDecisions& told) {
  Plot plot;
  plot.x_label = "sample at the middle of the sum";
  plot.y_label = "levels above baseline";
  plot.bars.assign(told.shape->sums.begin(), told.shape->sums.end());
  plot.levels.push_back({"low threshold", told.low_edges->threshold});
  plot.spans.push_back(Width("width", *told.low_edges, told.low_edges->threshold));
  if (told.high_width) {
    plot.levels.push_back({"high threshold", told.high_edges->threshold});
    plot.spans.push_back(Width("high width", *told.high_edges, told.high_edges->threshold));
  }
  plot.marks.push_back(RangeMark(told));
  return plot;
}

}  // namespace kerul::lidar::story
