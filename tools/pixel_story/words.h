// Numbers as the sentences of a story write them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// Two decimals, more for a small number: two digits are to mean something.
std::string Number(float value);
// The fewest digits that give the same float back: for settings and constants.
std::string Exact(float value);
std::string Metres(float value);      // "14.20 m"
std::string Pixel(int row, int col);  // "50,101"
std::string Percent(float share);     // 0.153 is "15.3 %"

// The two sides of a comparison, with as many decimals as it takes to tell them apart.
struct Sides {
  std::string left;
  std::string right;
};
Sides Compared(float left, float right);

std::string Joined(const std::vector<std::string>& words, std::string_view between = ", ");

NamedValue MetresValue(std::string name, float value);
NamedValue PlainValue(std::string name, float value);
NamedValue CountValue(std::string name, std::int64_t value);

}  // namespace kerul::lidar::story
