// What the samples and the sums of a window can be drawn with.
#pragma once

#include <vector>

#include "pixel_story/packet_road.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

// The samples that the cut of side peaks changed.
std::vector<int> CutSamples(const EchoDecisions& told);

// The samples as received, with all that was found in them. Levels are sums of three samples; they
// are drawn at a third, where they lie beside single samples.
Plot PlotOfSamples(const PacketRoad& road, int slot);

// The three-bin sums above the baseline, with thresholds, widths and centre as they were computed.
Plot PlotOfSums(const EchoDecisions& told);

}  // namespace kerul::lidar::story
