#include "pixel_story/plot_text.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "pixel_story/plot_frame.h"
#include "pixel_story/sentence.h"

namespace kerul::lidar::story {
namespace {

constexpr int kLines = 12;      // of the drawing
constexpr int kBarWidth = 2;    // characters of a bar
constexpr int kBarStep = 4;     // characters from bar to bar
constexpr int kLabelWidth = 9;  // of the numbers at the left

std::string RightAligned(const std::string& text, std::size_t width) {
  return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string LabelColumn(const std::string& text) { return RightAligned(text, kLabelWidth) + " |"; }

int CanvasWidth(const Plot& plot) { return static_cast<int>(plot.bars.size()) * kBarStep; }

// The character that stands for a position, kept inside the drawing.
int ColumnOf(const Plot& plot, float x) {
  const float columns = (x - plot.first_x + 0.5F) * static_cast<float>(kBarStep);
  if (!std::isfinite(columns)) return 0;
  const auto last = static_cast<float>(CanvasWidth(plot) - 1);
  return static_cast<int>(std::clamp(std::floor(columns), 0.0F, last));
}

class Canvas {
 public:
  explicit Canvas(const Plot& plot)
      : plot_(plot),
        range_(HeightRangeOf(plot)),
        lines_(kLines, std::string(static_cast<std::size_t>(CanvasWidth(plot)), ' ')),
        names_(kLines) {}

  void DrawLevels() {
    for (const Plot::Level& level : plot_.levels) {
      if (!std::isfinite(level.y)) continue;
      const std::size_t line = LineOf(level.y);
      std::fill(lines_[line].begin(), lines_[line].end(), '-');
      std::string& name = names_[line];
      name += (name.empty() ? " " : ", ") + level.name + ' ';
      name += Rounded(level.y);
    }
  }

  void DrawBars() {
    for (std::size_t bar = 0; bar < plot_.bars.size(); ++bar) {
      if (!std::isfinite(plot_.bars[bar]) || !(plot_.bars[bar] > range_.low)) continue;
      const char sign = IsMarked(plot_, bar) ? 'x' : '#';
      for (std::size_t line = LineOf(plot_.bars[bar]); line < kLines; ++line) {
        lines_[line].replace(bar * kBarStep + 1, kBarWidth, kBarWidth, sign);
      }
    }
  }

  void AppendTo(std::vector<std::string>& lines) const {
    for (std::size_t line = 0; line < kLines; ++line) {
      std::string label;
      if (line == 0) label = Rounded(range_.high);
      if (line + 1 == kLines) label = Rounded(range_.low);
      std::string text = LabelColumn(label) + lines_[line] + names_[line];
      text.erase(text.find_last_not_of(' ') + 1);
      lines.push_back(std::move(text));
    }
  }

 private:
  // The lowest line is just above the low end of the range, the highest holds its high end.
  std::size_t LineOf(float y) const {
    const float part = std::clamp((y - range_.low) / (range_.high - range_.low), 0.0F, 1.0F);
    const int up = static_cast<int>(std::ceil(part * static_cast<float>(kLines))) - 1;
    return static_cast<std::size_t>(kLines - 1 - std::clamp(up, 0, kLines - 1));
  }

  const Plot& plot_;
  HeightRange range_;
  std::vector<std::string> lines_;
  std::vector<std::string> names_;
};

std::string AxisLine(const Plot& plot) {
  std::string line = RightAligned("", kLabelWidth + 2);
  for (std::size_t bar = 0; bar < plot.bars.size(); ++bar) {
    std::string number = RightAligned(Rounded(plot.first_x + static_cast<float>(bar)), 3);
    line += number + std::string(number.size() < kBarStep ? kBarStep - number.size() : 0, ' ');
  }
  return line + ' ' + plot.x_label;
}

std::string MarkLine(const Plot& plot, const Plot::Mark& mark) {
  std::string line = RightAligned("", kLabelWidth + 2);
  line += std::string(static_cast<std::size_t>(ColumnOf(plot, mark.x)), ' ');
  return line + "^ " + mark.name + ' ' + Rounded(mark.x);
}

std::string SpanLine(const Plot& plot, const Plot::Span& span) {
  const int from = ColumnOf(plot, span.from);
  const int to = std::max(ColumnOf(plot, span.to), from + 1);
  std::string line = RightAligned("", kLabelWidth + 2) +
                     std::string(static_cast<std::size_t>(from), ' ') + '[' +
                     std::string(static_cast<std::size_t>(to - from - 1), '=') + "] ";
  return line + span.name + ' ' + Rounded(span.from) + " to " + Rounded(span.to);
}

}  // namespace

std::vector<std::string> PlotLines(const Plot& plot) {
  std::vector<std::string> lines;
  if (plot.bars.empty()) return lines;
  lines.push_back(RightAligned(plot.y_label, kLabelWidth));
  Canvas canvas(plot);
  canvas.DrawLevels();
  canvas.DrawBars();
  canvas.AppendTo(lines);
  lines.push_back(AxisLine(plot));
  for (const Plot::Mark& mark : plot.marks) lines.push_back(MarkLine(plot, mark));
  for (const Plot::Span& span : plot.spans) lines.push_back(SpanLine(plot, span));
  return lines;
}

}  // namespace kerul::lidar::story
