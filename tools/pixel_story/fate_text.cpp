#include "pixel_story/fate_text.h"

#include <cstdio>
#include <ostream>

#include "pixel_story/fate_picture.h"
#include "pixel_story/words.h"

namespace kerul::lidar::story {
namespace {

using Counts = std::array<int, kEchoSlots>;

// Calls visit(words, counts, hex colour) for the fates that occur.
template <typename Visit>
void VisitFates(const FateTable& table, const Visit& visit) {
  for (std::size_t i = 0; i < kFates; ++i) {
    const auto fate = static_cast<Fate>(i);
    if (table.Of(fate) > 0) visit(WordsOf(fate), table.fates[i], HexOf(ColourOf(fate)));
  }
}

template <typename Visit>
void VisitMarks(const FateTable& table, const Visit& visit) {
  for (std::size_t i = 0; i < kMarks; ++i) {
    const auto mark = static_cast<Mark>(i);
    if (table.Of(mark) > 0) visit(WordsOf(mark), table.marks[i]);
  }
}

Counts SumOf(const FateTable& table) {
  Counts sum{};
  for (const Counts& counts : table.fates) {
    for (std::size_t slot = 0; slot < kEchoSlots; ++slot) sum[slot] += counts[slot];
  }
  return sum;
}

void WriteLine(std::ostream& out, std::string_view words, const Counts& counts,
               const std::string& colour = "") {
  char line[96];
  std::snprintf(line, sizeof(line), "%-36.*s %8d %8d %8d", static_cast<int>(words.size()),
                words.data(), counts[0], counts[1], counts[0] + counts[1]);
  out << line << (colour.empty() ? "" : "   ") << colour << '\n';
}

}  // namespace

std::string PlaceOf(const PixelRect& rect) {
  const std::string first = Pixel(rect.first_row, rect.first_col);
  if (rect.first_row == rect.last_row && rect.first_col == rect.last_col) return "pixel " + first;
  return "pixels " + first + " to " + Pixel(rect.last_row, rect.last_col);
}

std::string SumSentence(const FateTable& table) {
  return "the fates add up to " + std::to_string(table.SumOfFates()) +
         " echoes: " + std::to_string(table.Pixels()) + " pixels with " +
         std::to_string(kEchoSlots) + " slots each";
}

void WriteFates(std::ostream& out, const FateTable& table) {
  out << "fates of the echoes of " << PlaceOf(table.rect) << '\n';
  out << "                                       slot 0   slot 1     both   colour\n";
  VisitFates(table, [&](std::string_view words, const Counts& counts, const std::string& colour) {
    WriteLine(out, words, counts, colour);
  });
  WriteLine(out, "sum", SumOf(table));
  out << SumSentence(table) << '\n';
  if (table.Of(Fate::kPublished) == 0) return;
  out << "of those published, in as many of the following as apply\n";
  VisitMarks(table,
             [&](std::string_view words, const Counts& counts) { WriteLine(out, words, counts); });
}

std::string ChangesSentence(const FateChanges& changes) {
  return std::to_string(changes.changed) + " of " + std::to_string(changes.echoes) +
         " echoes have another fate; " + std::to_string(changes.other_bytes) +
         " more are published with other bytes";
}

void WriteChanges(std::ostream& out, const FateChanges& changes) {
  out << ChangesSentence(changes) << '\n';
  VisitMoves(changes, [&](Fate before, Fate after, int echoes) {
    char count[16];
    std::snprintf(count, sizeof(count), "%8d", echoes);
    out << count << "   " << WordsOf(before) << " -> " << WordsOf(after) << '\n';
  });
}

}  // namespace kerul::lidar::story
