// A plot in characters, for the terminal.
#pragma once

#include <string>
#include <vector>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// Lines without line ends, top first: bars of '#' ('x' where a bar stands out), levels of '-' with
// their names at the right, below the axis the bars' positions, then a line for each mark ('^') and
// each span ('[===]'). Pure ASCII. Nothing for a plot without bars.
std::vector<std::string> PlotLines(const Plot& plot);

}  // namespace kerul::lidar::story
