#include "pixel_story/words.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>

namespace kerul::lidar::story {
namespace {

constexpr int kUsualDecimals = 2;
constexpr int kMostDecimals = 9;

std::string WithDecimals(float value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.*f", decimals, static_cast<double>(value));
  return text;
}

}  // namespace

std::string Number(float value) {
  if (!std::isfinite(value) || std::fabs(value) >= 1e9F) {
    char text[32];
    std::snprintf(text, sizeof(text), "%g", static_cast<double>(value));
    return text;
  }
  int decimals = kUsualDecimals;
  // Two digits that mean something.
  for (float size = std::fabs(value); size > 0.0F && size < 0.1F && decimals < kMostDecimals;
       size *= 10.0F) {
    ++decimals;
  }
  return WithDecimals(value, decimals);
}

std::string Exact(float value) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

std::string Metres(float value) { return Number(value) + " m"; }

std::string Pixel(int row, int col) { return std::to_string(row) + ',' + std::to_string(col); }

std::string Percent(float share) { return WithDecimals(100.0F * share, 1) + " %"; }

Sides Compared(float left, float right) {
  Sides sides{Number(left), Number(right)};
  if (!std::isfinite(left) || !std::isfinite(right)) return sides;
  for (int decimals = kUsualDecimals; sides.left == sides.right && left != right; ++decimals) {
    if (decimals == kMostDecimals) break;
    sides = {WithDecimals(left, decimals + 1), WithDecimals(right, decimals + 1)};
  }
  return sides;
}

std::string Joined(const std::vector<std::string>& words, std::string_view between) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += between;
    text += word;
  }
  return text;
}

NamedValue MetresValue(std::string name, float value) { return {std::move(name), value, "m"}; }
NamedValue PlainValue(std::string name, float value) { return {std::move(name), value, ""}; }
NamedValue CountValue(std::string name, std::int64_t value) { return {std::move(name), value, ""}; }

}  // namespace kerul::lidar::story
