// What the plots for terminal and page share: the range of their axes.
#pragma once

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// From 0, or from the lowest value below it, to the highest bar or level. Values that are not
// finite are left out. 0 to 1 where nothing can be drawn to scale.
struct HeightRange {
  float low = 0.0F;
  float high = 1.0F;
};

HeightRange HeightRangeOf(const Plot& plot) noexcept;

bool IsMarked(const Plot& plot, std::size_t bar) noexcept;

}  // namespace kerul::lidar::story
