#include "pixel_story/sentence.h"

#include <array>
#include <charconv>
#include <cstddef>

namespace kerul::lidar::story {

std::string Rounded(float number) {
  constexpr int kDigits = 5;
  std::array<char, 64> text;
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number,
                                     std::chars_format::general, kDigits)
                           .ptr};
}

Sides RoundedSides(float left, float right) {
  const Sides rounded{Rounded(left), Rounded(right)};
  return rounded.left != rounded.right ? rounded : Sides{Exact(left), Exact(right)};
}

std::string Listed(const std::vector<int>& numbers) {
  std::string text;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0) text += i + 1 == numbers.size() ? " and " : ", ";
    text += std::to_string(numbers[i]);
  }
  return text;
}

}  // namespace kerul::lidar::story
