#include "pixel_story/story_text.h"

#include <ostream>

#include "pixel_story/plot_text.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

void WriteStep(std::ostream& out, const Step& step) {
  out << "  " << step.name << (step.note.empty() ? "" : " (" + step.note + ')') << '\n';
  for (const std::string& sentence : step.sentences) out << "    " << sentence << '\n';
  if (step.plot) {
    for (const std::string& line : PlotLines(*step.plot)) out << "    " << line << '\n';
  }
  if (step.values.empty()) return;
  out << "   ";
  for (const NamedValue& value : step.values) out << ' ' << value.name << '=' << TextOf(value);
  out << '\n';
}

}  // namespace

std::string TextOf(const NamedValue& value) {
  std::string text;
  if (const auto* whole = std::get_if<std::int64_t>(&value.value)) text = std::to_string(*whole);
  if (const auto* number = std::get_if<float>(&value.value)) text = Exact(*number);
  if (const auto* word = std::get_if<std::string>(&value.value)) text = *word;
  return value.unit.empty() ? text : text + ' ' + value.unit;
}

void WriteText(std::ostream& out, const PixelStory& story) {
  for (const EchoStory& echo : story.echoes) {
    out << "pixel " << story.row << ',' << story.col << ", echo slot " << echo.slot << '\n';
    if (echo.steps.empty()) out << "  its row did not run: nothing of it was published\n";
    for (const Step& step : echo.steps) WriteStep(out, step);
    out << '\n';
  }
}

}  // namespace kerul::lidar::story
