// A plot as a drawing inside a page.
#pragma once

#include <string>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// An <svg> element with a <title>; its colours are classes of the page's style. Empty for a plot
// without bars.
std::string PlotSvg(const Plot& plot, const std::string& title);

// With &, <, > and " as entities.
std::string Escaped(const std::string& text);

}  // namespace kerul::lidar::story
