#include "pixel_story/story_html.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "pixel_story/plot_svg.h"

namespace kerul::lidar::story {
namespace {

// Reads a page as an XML reader does: each tag is closed in its turn, attributes are quoted, an &
// begins one of the four entities. `problem` is empty when all is well.
struct PageReader {
  std::map<std::string, int> elements;  // how often each begins
  std::string text;                     // outside of tags and of the style
  std::string problem;

  explicit PageReader(const std::string& page) {
    std::size_t at = page.find('>') + 1;  // after the doctype
    if (!page.starts_with("<!DOCTYPE html>")) problem = "no doctype";
    while (problem.empty() && at < page.size()) {
      const std::size_t tag = std::min(page.find('<', at), page.size());
      TakeText(page.substr(at, tag - at));
      const std::size_t end = page.find('>', tag);
      if (tag == page.size()) break;
      if (end == std::string::npos) {
        problem = "a tag without an end";
        break;
      }
      TakeTag(page.substr(tag + 1, end - tag - 1));
      at = end + 1;
    }
    if (problem.empty() && !open_.empty()) problem = open_.back() + " stays open";
  }

 private:
  void TakeText(const std::string& part) {
    if (!open_.empty() && open_.back() == "style") return;
    for (std::size_t i = 0; i < part.size(); ++i) {
      if (part[i] != '&') {
        text += part[i];
        continue;
      }
      static const std::map<std::string, char> entities{
          {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}};
      const std::size_t end = std::min(part.find(';', i), part.size());
      const auto entity = entities.find(part.substr(i + 1, end - i - 1));
      if (entity == entities.end()) {
        problem = "a bare &";
        return;
      }
      text += entity->second;
      i = end;
    }
  }

  void TakeTag(std::string tag) {
    if (tag.starts_with('/')) {
      if (open_.empty() || open_.back() != tag.substr(1)) {
        problem = "closes " + tag.substr(1);
        return;
      }
      open_.pop_back();
      return;
    }
    const bool closed = tag.ends_with('/');
    if (closed) tag.pop_back();
    const std::string name = tag.substr(0, tag.find(' '));
    ++elements[name];
    const std::string attributes = tag.substr(name.size());
    std::size_t values = 0;
    for (std::size_t at = attributes.find("=\""); at != std::string::npos;
         at = attributes.find("=\"", at + 1)) {
      ++values;
    }
    const auto quotes = std::count(attributes.begin(), attributes.end(), '"');
    if (static_cast<std::size_t>(quotes) != 2 * values) {
      problem = "attributes of " + tag;
    }
    if (!closed) open_.push_back(name);
  }

  std::vector<std::string> open_;
};

Plot SmallPlot() {
  Plot plot;
  plot.x_label = "sample";
  plot.y_label = "counts";
  plot.bars = {1.0F, 4.0F};
  plot.marked = {0};
  plot.levels = {{"baseline", 1.0F}, {"low threshold", 1.1F}};
  plot.marks = {{"centre", 0.75F}};
  plot.spans = {{"width", 0.25F, 1.25F, 1.1F}};
  return plot;
}

PixelStory StoryOf(int row, int col) {
  Step step{.name = "samples",
            .sentences = {"7 < 8 & \"so on\"."},
            .values = {{"range", 1.25F, "m"}},
            .plot = SmallPlot()};
  return {.row = row, .col = col, .echoes = {{0, {step}}, {1, {}}}};
}

std::string PageOf(const std::vector<PixelStory>& stories) {
  std::ostringstream page;
  WriteHtml(page, stories, "Frame 0 of <a & b>.pcap");
  return page.str();
}

TEST(StoryPage, IsWellFormedAndSaysAllOfTheStory) {
  const PageReader page(PageOf({StoryOf(3, 5)}));
  EXPECT_EQ(page.problem, "");
  for (const char* text :
       {"The story of pixel 3,5", "Frame 0 of <a & b>.pcap", "7 < 8 & \"so on\".", "range",
        "1.25 m", "echo slot 1", "Its row did not run", "baseline 1", "centre 0.75"}) {
    EXPECT_NE(page.text.find(text), std::string::npos) << text;
  }
  EXPECT_EQ(page.elements.at("svg"), 1);
  EXPECT_EQ(page.elements.at("rect"), 2);
  EXPECT_FALSE(page.elements.contains("nav"));
}

TEST(StoryPage, NeedsNothingFromOutsideAndNoScript) {
  const std::string text = PageOf({StoryOf(3, 5)});
  const PageReader page(text);
  for (const char* element : {"script", "link", "img", "iframe", "object", "image", "use"}) {
    EXPECT_FALSE(page.elements.contains(element)) << element;
  }
  for (const char* word : {"http", "url(", "@import", " src=", "javascript"}) {
    EXPECT_EQ(text.find(word), std::string::npos) << word;
  }
  EXPECT_NE(text.find("@media (prefers-color-scheme: dark)"), std::string::npos);
  EXPECT_NE(text.find("@media print"), std::string::npos);
}

TEST(StoryPage, SeveralPixelsHaveContentsThatLeadToThem) {
  const std::string text = PageOf({StoryOf(3, 5), StoryOf(3, 6)});
  const PageReader page(text);
  EXPECT_EQ(page.problem, "");
  EXPECT_EQ(page.elements.at("nav"), 1);
  EXPECT_EQ(page.elements.at("svg"), 2);
  EXPECT_NE(text.find("href=\"#pixel-3-6\""), std::string::npos);
  EXPECT_NE(text.find("id=\"pixel-3-6\""), std::string::npos);
}

TEST(StoryPage, HasTheFirstThousandPixelsAndSaysSo) {
  const std::vector<PixelStory> stories(1001, {.row = 1, .col = 2, .echoes = {{0, {}}}});
  const PageReader page(PageOf(stories));
  EXPECT_EQ(page.elements.at("section"), 1000);
  EXPECT_NE(page.text.find("The stories of 1001 pixels"), std::string::npos);
  EXPECT_NE(page.text.find("The page has the first 1000 of them."), std::string::npos);
  const std::vector<PixelStory> fewer(stories.begin() + 1, stories.end());
  EXPECT_EQ(PageReader(PageOf(fewer)).text.find("The page has"), std::string::npos);
}

TEST(StoryPage, TwoStoriesOfAPixelStandSideBySide) {
  std::vector<PixelStory> left{StoryOf(3, 5), StoryOf(3, 6)};
  const std::vector<PixelStory> right = left;
  left[1].echoes[0].steps[0].note = "only < here";
  std::ostringstream out;
  WriteHtml(out, {"as <configured>", left}, {"with a=1", right}, "about", "<p>front</p>\n");
  const PageReader page(out.str());
  EXPECT_EQ(page.problem, "");
  EXPECT_EQ(page.elements.at("svg"), 4);
  EXPECT_NE(page.text.find("samples only < here"), std::string::npos);
  EXPECT_LT(out.str().find("<p>front</p>"), out.str().find("<nav>"));
  const std::size_t pair = out.str().find("<div class=\"pair\" id=\"pixel-3-6\">");
  ASSERT_NE(pair, std::string::npos);
  const std::size_t first = out.str().find("<h2>as &lt;configured&gt;</h2>", pair);
  EXPECT_LT(first, out.str().find("<h2>with a=1</h2>", pair));
}

// The number after `name="` in the first tag of the class after `from`.
float NumberIn(const std::string& svg, const std::string& style, const std::string& name,
               std::size_t from = 0) {
  const std::size_t tag = svg.find("class=\"" + style + '"', from);
  const std::size_t at = svg.find(' ' + name + "=\"", tag);
  return std::stof(svg.substr(at + name.size() + 3));
}

// Bars and levels share the scale: the bar of 4 reaches the top of the drawing, a quarter of it is
// a level of 1; sample 0.75 lies three quarters of the way between the bars' middles.
TEST(PlotSvg, DrawsAllOnOneScale) {
  const std::string svg = PlotSvg(SmallPlot(), "a \"plot\"");
  EXPECT_EQ(PageReader("<!DOCTYPE html>" + svg).problem, "");
  EXPECT_NE(svg.find("<title>a &quot;plot&quot;</title>"), std::string::npos);
  const float foot = NumberIn(svg, "axis", "y1");
  const float top = NumberIn(svg, "bar", "y");
  const float cut_top = NumberIn(svg, "bar cut", "y");
  EXPECT_NEAR(foot - cut_top, (foot - top) / 4.0F, 0.1F);  // rounded in the drawing
  const float first = NumberIn(svg, "bar cut", "x");
  const float second = NumberIn(svg, "bar", "x");
  const float half = NumberIn(svg, "bar", "width") / 2.0F;
  const float left = NumberIn(svg, "axis", "x1");
  EXPECT_NEAR(first + half - left, (NumberIn(svg, "axis", "x2") - left) / 4.0F, 0.1F);
  EXPECT_NEAR(NumberIn(svg, "mark", "x1"), first + half + 0.75F * (second - first), 0.1F);
  EXPECT_NEAR(NumberIn(svg, "span", "x2") - NumberIn(svg, "span", "x1"), second - first, 0.1F);
}

TEST(PlotSvg, NamesOfLevelsThatAreCloseStandApart) {
  Plot plot = SmallPlot();
  plot.levels = {{"one", 0.0F}, {"two", 0.01F}, {"three", 0.02F}};
  const std::string svg = PlotSvg(plot, "plot");
  std::vector<float> places;
  for (std::size_t at = svg.find("class=\"name\""); at != std::string::npos;
       at = svg.find("class=\"name\"", at + 1)) {
    places.push_back(NumberIn(svg, "name", "y", at));
  }
  ASSERT_EQ(places.size(), 3U);
  EXPECT_GE(places[1] - places[0], 12.0F);
  EXPECT_GE(places[2] - places[1], 12.0F);
}

TEST(PlotSvg, LeavesOutWhatIsNoNumber) {
  Plot plot = SmallPlot();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  plot.bars = {nan, 4.0F};
  plot.levels = {{"lost", nan}};
  plot.marks = {{"lost", nan}};
  plot.spans = {{"lost", nan, 1.0F, 1.0F}};
  const std::string svg = PlotSvg(plot, "plot");
  EXPECT_EQ(svg.find("nan"), std::string::npos);
  EXPECT_EQ(svg.find("lost"), std::string::npos);
  EXPECT_EQ(PlotSvg(Plot{}, "plot"), "");
}

TEST(PlotSvg, ManagesFlatAndHugePlots) {
  for (const float height : {0.0F, 1e-44F, 3e38F}) {
    Plot plot = SmallPlot();
    plot.bars = {-height, height};
    plot.levels.clear();
    const std::string svg = PlotSvg(plot, "plot");
    EXPECT_EQ(PageReader("<!DOCTYPE html>" + svg).problem, "") << height;
    EXPECT_EQ(svg.find("nan"), std::string::npos) << height;
    EXPECT_EQ(svg.find("inf"), std::string::npos) << height;
  }
}

}  // namespace
}  // namespace kerul::lidar::story
