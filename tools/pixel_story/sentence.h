// Numbers inside the packet's sentences, which go from a thousandth to thousands of levels.
#pragma once

#include <string>
#include <vector>

#include "pixel_story/words.h"

namespace kerul::lidar::story {

// Five significant digits: "14.213", "0.15". Exact values stand beside the sentences.
std::string Rounded(float number);

// The two sides of a comparison. Where rounding would make them look equal although they are not,
// both have all their digits.
Sides RoundedSides(float left, float right);

// "3", "3 and 5", "3, 5 and 6".
std::string Listed(const std::vector<int>& numbers);

}  // namespace kerul::lidar::story
