// Stories as one page that stands alone: no scripts, nothing from outside, readable when printed,
// in light and in dark.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// A browser shows no page of a whole frame, which would be gigabytes.
inline constexpr std::size_t kMostPagePixels = 1000;

// XML as well as HTML. `about` says what was played: capture, frame, calibration. Of more pixels
// than kMostPagePixels the page has the first ones, and says so. `front` is markup that stands
// before the stories, empty for none.
void WriteHtml(std::ostream& out, const std::vector<PixelStory>& stories, const std::string& about,
               const std::string& front = "");

// Two stories of each pixel side by side, on a narrow screen one below the other.
struct PageColumn {
  std::string title;
  const std::vector<PixelStory>& stories;
};
void WriteHtml(std::ostream& out, const PageColumn& left, const PageColumn& right,
               const std::string& about, const std::string& front);

}  // namespace kerul::lidar::story
