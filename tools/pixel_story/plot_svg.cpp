#include "pixel_story/plot_svg.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "pixel_story/plot_frame.h"
#include "pixel_story/sentence.h"

namespace kerul::lidar::story {
namespace {

// In units of the drawing; a unit is a pixel at its natural size.
constexpr float kLeft = 52.0F;
constexpr float kRight = 560.0F;
constexpr float kTop = 34.0F;
constexpr float kBottom = 236.0F;
constexpr float kWidth = 760.0F;  // the names of the levels stand right of the drawing
constexpr float kHeight = 280.0F;
constexpr float kLineDistance = 14.0F;  // between names
constexpr float kBarShare = 0.7F;       // of the distance from bar to bar

std::string Place(const char* name, float value) {
  return std::string(" ") + name + "=\"" + Rounded(value) + '"';
}

std::string Line(const char* style, float x1, float y1, float x2, float y2) {
  return std::string("<line class=\"") + style + '"' + Place("x1", x1) + Place("y1", y1) +
         Place("x2", x2) + Place("y2", y2) + "/>\n";
}

std::string Text(const char* style, float x, float y, const std::string& text) {
  return std::string("<text class=\"") + style + '"' + Place("x", x) + Place("y", y) + '>' +
         Escaped(text) + "</text>\n";
}

struct Axes {
  HeightRange range;
  float first_x;
  float bars;

  float X(float x) const noexcept { return kLeft + (x - first_x + 0.5F) / bars * (kRight - kLeft); }
  float Y(float y) const noexcept {
    const float part = (y - range.low) / (range.high - range.low);
    return kBottom - std::clamp(part, 0.0F, 1.0F) * (kBottom - kTop);
  }
  bool Holds(float x) const noexcept { return x >= first_x - 0.5F && x <= first_x + bars - 0.5F; }
};

// 1, 2 or 5 times a power of ten, so that the axis has four to ten numbers.
float TickDistance(float height) {
  const float power = std::pow(10.0F, std::floor(std::log10(height / 4.0F)));
  for (const float factor : {5.0F, 2.0F}) {
    if (height / (power * factor) >= 4.0F) return power * factor;
  }
  return power;
}

std::string HeightAxis(const Axes& axes) {
  std::string drawing;
  const float distance = TickDistance(axes.range.high - axes.range.low);
  const auto first = static_cast<int>(std::ceil(axes.range.low / distance));
  const auto last = static_cast<int>(std::floor(axes.range.high / distance));
  for (int tick = first; tick <= last; ++tick) {
    const float value = static_cast<float>(tick) * distance;
    const float y = axes.Y(value);
    drawing += Line("grid", kLeft, y, kRight, y);
    drawing += Text("number left", kLeft - 6.0F, y + 4.0F, Rounded(value));
  }
  return drawing;
}

std::string Bars(const Plot& plot, const Axes& axes) {
  std::string drawing;
  const float half = (kRight - kLeft) / axes.bars * kBarShare / 2.0F;
  for (std::size_t i = 0; i < plot.bars.size(); ++i) {
    const float x = axes.X(axes.first_x + static_cast<float>(i));
    drawing += Text("number", x, kBottom + 16.0F, Rounded(axes.first_x + static_cast<float>(i)));
    if (!std::isfinite(plot.bars[i])) continue;
    const float top = axes.Y(plot.bars[i]);
    drawing += std::string("<rect class=\"") + (IsMarked(plot, i) ? "bar cut" : "bar") + '"' +
               Place("x", x - half) + Place("y", top) + Place("width", half * 2.0F) +
               Place("height", axes.Y(axes.range.low) - top) + "><title>" +
               Escaped(Rounded(plot.bars[i])) + "</title></rect>\n";
  }
  return drawing;
}

// Names that would lie over each other are moved apart, the highest level's first.
std::string Levels(const Plot& plot, const Axes& axes) {
  std::vector<Plot::Level> levels;
  for (const Plot::Level& level : plot.levels) {
    if (std::isfinite(level.y)) levels.push_back(level);
  }
  std::stable_sort(levels.begin(), levels.end(),
                   [](const auto& a, const auto& b) { return a.y > b.y; });
  // From the lowest up, so that none leaves the drawing at the bottom.
  std::vector<float> places(levels.size());
  float lowest_free = kBottom + 4.0F;
  for (std::size_t i = levels.size(); i-- > 0;) {
    places[i] = std::min(axes.Y(levels[i].y) + 4.0F, lowest_free);
    lowest_free = places[i] - kLineDistance;
  }
  std::string drawing;
  for (std::size_t i = 0; i < levels.size(); ++i) {
    const float y = axes.Y(levels[i].y);
    drawing += Line("level", kLeft, y, kRight, y);
    drawing += Line("lead", kRight, y, kRight + 8.0F, places[i] - 4.0F);
    drawing += Text("name", kRight + 11.0F, places[i], levels[i].name + ' ' + Rounded(levels[i].y));
  }
  return drawing;
}

std::string Marks(const Plot& plot, const Axes& axes) {
  std::string drawing;
  float name_y = kTop - 8.0F;
  for (const Plot::Mark& mark : plot.marks) {
    if (!axes.Holds(mark.x)) continue;
    const float x = axes.X(mark.x);
    drawing += Line("mark", x, kTop - 4.0F, x, kBottom);
    drawing += Text("name middle", x, name_y, mark.name + ' ' + Rounded(mark.x));
    name_y -= kLineDistance;
  }
  return drawing;
}

std::string Spans(const Plot& plot, const Axes& axes) {
  constexpr float kEnd = 5.0F;
  std::string drawing;
  for (const Plot::Span& span : plot.spans) {
    if (!axes.Holds(span.from) || !axes.Holds(span.to) || !std::isfinite(span.y)) continue;
    const float from = axes.X(span.from);
    const float to = axes.X(span.to);
    const float y = axes.Y(span.y);
    drawing += "<g><title>" +
               Escaped(span.name + ": " + Rounded(span.from) + " to " + Rounded(span.to)) +
               "</title>\n";
    drawing += Line("span", from, y, to, y);
    drawing += Line("span", from, y - kEnd, from, y + kEnd);
    drawing += Line("span", to, y - kEnd, to, y + kEnd);
    drawing += "</g>\n";
  }
  return drawing;
}

}  // namespace

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    switch (letter) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += letter;
    }
  }
  return escaped;
}

std::string PlotSvg(const Plot& plot, const std::string& title) {
  if (plot.bars.empty()) return {};
  const Axes axes{HeightRangeOf(plot), plot.first_x, static_cast<float>(plot.bars.size())};
  std::string svg = "<svg viewBox=\"0 0 " + Rounded(kWidth) + ' ' + Rounded(kHeight) +
                    "\" role=\"img\">\n<title>" + Escaped(title) + "</title>\n";
  svg += HeightAxis(axes) + Bars(plot, axes);
  svg += Line("axis", kLeft, kBottom, kRight, kBottom);
  svg += Levels(plot, axes) + Spans(plot, axes) + Marks(plot, axes);
  svg += Text("label", kLeft, 14.0F, plot.y_label);
  svg += Text("label middle", (kLeft + kRight) / 2.0F, kBottom + 36.0F, plot.x_label);
  return svg + "</svg>\n";
}

}  // namespace kerul::lidar::story
