#include "pixel_story/fate_html.h"

#include <sstream>
#include <stdexcept>
#include <vector>

#include "pixel_story/fate_picture.h"
#include "pixel_story/fate_text.h"
#include "pixel_story/plot_svg.h"
#include "support/png_file.h"

namespace kerul::lidar::story {
namespace {

using Counts = std::array<int, kEchoSlots>;

std::string Cell(const std::string& text) { return "<td>" + text + "</td>"; }

std::string TableLine(const std::string& words, const Counts& counts) {
  return "<tr>" + Cell(words) + Cell(std::to_string(counts[0])) + Cell(std::to_string(counts[1])) +
         Cell(std::to_string(counts[0] + counts[1])) + "</tr>\n";
}

std::string Head(const std::string& first) {
  return "<table>\n<tr><th>" + first + "</th><th>slot 0</th><th>slot 1</th><th>both</th></tr>\n";
}

std::string PictureMarkup(const FrameStates& states, const PixelRect& rect) {
  const FatePicture picture = DrawFates(states, rect);
  std::vector<char> png;
  std::string error;
  if (!EncodePng(picture.width, picture.height, picture.rgb, png, error)) {
    throw std::runtime_error(error);
  }
  return "<img alt=\"The fates of slot 0 on the left, of slot 1 on the right\" "
         "src=\"data:image/png;base64," +
         Base64(png) + "\"/>\n";
}

}  // namespace

std::string Base64(std::span<const char> bytes) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto byte = [&](std::size_t i) -> unsigned {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
  };
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    for (std::size_t k = 0; k < 4; ++k) {
      text += i + k > bytes.size() ? '=' : kLetters[group >> (18 - 6 * k) & 0x3F];
    }
  }
  return text;
}

std::string FatesMarkup(const std::string& title, const FateTable& table,
                        const FrameStates& states) {
  std::ostringstream out;
  out << "<section>\n<h2>" << Escaped(title) << "</h2>\n"
      << PictureMarkup(states, table.rect) << Head("fate");
  for (std::size_t i = 0; i < kFates; ++i) {
    const auto fate = static_cast<Fate>(i);
    if (table.Of(fate) == 0) continue;
    out << TableLine("<span class=\"swatch\" style=\"background: " + HexOf(ColourOf(fate)) +
                         "\"></span>" + std::string(WordsOf(fate)),
                     table.fates[i]);
  }
  out << "</table>\n<p>" << SumSentence(table) << "</p>\n";
  if (table.Of(Fate::kPublished) > 0) {
    out << Head("of those published");
    for (std::size_t i = 0; i < kMarks; ++i) {
      const auto mark = static_cast<Mark>(i);
      if (table.Of(mark) > 0) out << TableLine(std::string(WordsOf(mark)), table.marks[i]);
    }
    out << "</table>\n";
  }
  out << "</section>\n";
  return out.str();
}

std::string ChangesMarkup(const FateChanges& changes) {
  std::ostringstream out;
  out << "<section>\n<h2>What changes</h2>\n<p>" << ChangesSentence(changes) << "</p>\n";
  if (changes.changed > 0) {
    out << "<table>\n<tr><th>as configured</th><th>changed</th><th>echoes</th></tr>\n";
    VisitMoves(changes, [&](Fate before, Fate after, int echoes) {
      out << "<tr>" << Cell(std::string(WordsOf(before))) << Cell(std::string(WordsOf(after)))
          << Cell(std::to_string(echoes)) << "</tr>\n";
    });
    out << "</table>\n";
  }
  out << "</section>\n";
  return out.str();
}

}  // namespace kerul::lidar::story
