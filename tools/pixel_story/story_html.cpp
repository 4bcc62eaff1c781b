#include "pixel_story/story_html.h"

#include <algorithm>
#include <ostream>
#include <span>

#include "pixel_story/plot_svg.h"
#include "pixel_story/story_text.h"

namespace kerul::lidar::story {
namespace {

constexpr const char* kStyle = R"(
:root { color-scheme: light dark; --ink: #1c2430; --paper: #ffffff; --soft: #66707d;
  --rule: #d9dee5; --bar: #8fb3d9; --cut: #d99a5b; --level: #2f7d4f; --mark: #b3261e;
  --span: #6a3fb5; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e4e8ee; --paper: #14181d; --soft: #98a3b0; --rule: #333b45; --bar: #4a78a8;
    --cut: #c9823f; --level: #6cc28f; --mark: #ff8a80; --span: #b79bf0; }
}
body { margin: 0 auto; padding: 1.5rem; max-width: 60rem; background: var(--paper);
  color: var(--ink); font: 16px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.5rem; } h2 { font-size: 1.25rem; margin-top: 2.5rem; }
h3 { font-size: 1rem; margin: 1.5rem 0 0.3rem; padding-top: 0.6rem;
  border-top: 1px solid var(--rule); }
p { margin: 0.2rem 0; } .about, .empty { color: var(--soft); }
dl { display: flex; flex-wrap: wrap; gap: 0.1rem 1.4rem; margin: 0.4rem 0; font-size: 0.85rem; }
dl div { display: flex; gap: 0.4rem; } dt { color: var(--soft); } dd { margin: 0;
  font-variant-numeric: tabular-nums; overflow-wrap: anywhere; }
.note { color: var(--mark); font-weight: normal; }
.pair { display: grid; grid-template-columns: 1fr 1fr; gap: 0 2rem; }
.pair > div { min-width: 0; }
body.wide { max-width: 110rem; }
@media (max-width: 60rem) { .pair { display: block; } }
table { border-collapse: collapse; margin: 0.8rem 0; font-size: 0.9rem; }
td, th { padding: 0.15rem 0.7rem; text-align: right; border-top: 1px solid var(--rule); }
td:first-child, th:first-child { text-align: left; }
.swatch { display: inline-block; width: 0.9em; height: 0.9em; margin-right: 0.5em;
  border: 1px solid var(--rule); vertical-align: -0.1em; print-color-adjust: exact; }
img { display: block; width: 100%; max-width: 1160px; image-rendering: pixelated; }
svg { display: block; width: 100%; max-width: 760px; height: auto; margin: 0.6rem 0; }
svg text { fill: var(--ink); font: 12px system-ui, sans-serif; }
svg .number { fill: var(--soft); text-anchor: middle; font-size: 11px; }
svg .left { text-anchor: end; } svg .middle { text-anchor: middle; }
svg .label { fill: var(--soft); } svg .grid { stroke: var(--rule); }
svg .axis { stroke: var(--ink); } svg .bar { fill: var(--bar); } svg .cut { fill: var(--cut); }
svg .level { stroke: var(--level); stroke-dasharray: 5 3; } svg .lead { stroke: var(--level); }
svg .mark { stroke: var(--mark); stroke-width: 1.5; }
svg .span { stroke: var(--span); stroke-width: 2.5; }
@media print {
  :root { color-scheme: light; --ink: #000000; --paper: #ffffff; --soft: #444444; --rule: #bbbbbb;
    --bar: #b5c9de; --cut: #d9a36b; --level: #2f7d4f; --mark: #b3261e; --span: #6a3fb5; }
  body { max-width: none; padding: 0; font-size: 11pt; }
  section > h2 { break-after: avoid; } article { break-inside: avoid; }
  section + section { break-before: page; } nav { display: none; }
  svg .bar, svg .cut { print-color-adjust: exact; }
}
)";

std::string PixelName(const PixelStory& story) {
  return "Pixel " + std::to_string(story.row) + ',' + std::to_string(story.col);
}

std::string PixelAnchor(const PixelStory& story) {
  return "pixel-" + std::to_string(story.row) + '-' + std::to_string(story.col);
}

void WriteStep(std::ostream& out, const Step& step, const std::string& owner) {
  out << "<article>\n<h3>" << Escaped(step.name);
  if (!step.note.empty()) out << " <span class=\"note\">" << Escaped(step.note) << "</span>";
  out << "</h3>\n";
  for (const std::string& sentence : step.sentences) {
    out << "<p>" << Escaped(sentence) << "</p>\n";
  }
  if (step.plot) out << PlotSvg(*step.plot, owner + ": " + step.name);
  if (!step.values.empty()) {
    out << "<dl>\n";
    for (const NamedValue& value : step.values) {
      out << "<div><dt>" << Escaped(value.name) << "</dt><dd>" << Escaped(TextOf(value))
          << "</dd></div>\n";
    }
    out << "</dl>\n";
  }
  out << "</article>\n";
}

void WriteEcho(std::ostream& out, const PixelStory& story, const EchoStory& echo) {
  const std::string owner = PixelName(story) + ", echo slot " + std::to_string(echo.slot);
  out << "<section>\n<h2>" << owner << "</h2>\n";
  if (echo.steps.empty()) {
    out << "<p class=\"empty\">Its row did not run: nothing of it was published.</p>\n";
  }
  for (const Step& step : echo.steps) WriteStep(out, step, owner);
  out << "</section>\n";
}

void WriteContents(std::ostream& out, std::span<const PixelStory> stories) {
  if (stories.size() < 2) return;
  out << "<nav>\n<p>";
  for (const PixelStory& story : stories) {
    out << "<a href=\"#" << PixelAnchor(story) << "\">" << story.row << ',' << story.col << "</a> ";
  }
  out << "</p>\n</nav>\n";
}

std::string TitleOf(const std::vector<PixelStory>& stories) {
  if (stories.empty()) return "The fates of a frame";
  if (stories.size() == 1) return "The story of pixel " + PixelName(stories[0]).substr(6);
  return "The stories of " + std::to_string(stories.size()) + " pixels";
}

// All in front of the stories. Gives those that the page shows.
std::span<const PixelStory> BeginPage(std::ostream& out, const std::vector<PixelStory>& stories,
                                      const char* body, const std::string& about,
                                      const std::string& front) {
  const std::string title = TitleOf(stories);
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
      << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n<title>"
      << title << "</title>\n<style>" << kStyle << "</style>\n</head>\n"
      << body << "\n<h1>" << title << "</h1>\n<p class=\"about\">" << Escaped(about) << "</p>\n"
      << front;
  const std::span shown = std::span(stories).first(std::min(stories.size(), kMostPagePixels));
  if (shown.size() < stories.size()) {
    out << "<p class=\"about\">The page has the first " << shown.size() << " of them.</p>\n";
  }
  WriteContents(out, shown);
  return shown;
}

void WriteEchoes(std::ostream& out, const PixelStory& story) {
  for (const EchoStory& echo : story.echoes) WriteEcho(out, story, echo);
}

void WriteColumn(std::ostream& out, const std::string& title, const PixelStory& story) {
  out << "<div>\n<h2>" << Escaped(title) << "</h2>\n";
  WriteEchoes(out, story);
  out << "</div>\n";
}

}  // namespace

void WriteHtml(std::ostream& out, const std::vector<PixelStory>& stories, const std::string& about,
               const std::string& front) {
  for (const PixelStory& story : BeginPage(out, stories, "<body>", about, front)) {
    out << "<div id=\"" << PixelAnchor(story) << "\">\n";
    WriteEchoes(out, story);
    out << "</div>\n";
  }
  out << "</body>\n</html>\n";
}

void WriteHtml(std::ostream& out, const PageColumn& left, const PageColumn& right,
               const std::string& about, const std::string& front) {
  const auto shown = BeginPage(out, left.stories, "<body class=\"wide\">", about, front);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    out << "<div class=\"pair\" id=\"" << PixelAnchor(left.stories[i]) << "\">\n";
    WriteColumn(out, left.title, left.stories[i]);
    WriteColumn(out, right.title, right.stories[i]);
    out << "</div>\n";
  }
  out << "</body>\n</html>\n";
}

}  // namespace kerul::lidar::story
