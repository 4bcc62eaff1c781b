// Stories as text for the terminal.
#pragma once

#include <iosfwd>
#include <string>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// A named value as it is shown: shortest digits that give the same float back, then the unit.
std::string TextOf(const NamedValue& value);

// For each echo its steps: name, sentences, values.
void WriteText(std::ostream& out, const PixelStory& story);

}  // namespace kerul::lidar::story
