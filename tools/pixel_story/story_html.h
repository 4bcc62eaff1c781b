// Stories as one page that stands alone: no scripts, nothing from outside, readable when printed,
// in light and in dark.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// XML as well as HTML. `about` says what was played: capture, frame, calibration.
void WriteHtml(std::ostream& out, const std::vector<PixelStory>& stories, const std::string& about);

}  // namespace kerul::lidar::story
