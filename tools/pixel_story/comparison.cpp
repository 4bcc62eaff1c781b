#include "pixel_story/comparison.h"

#include <algorithm>
#include <bit>

namespace kerul::lidar::story {
namespace {

bool SameBits(const NamedValue& a, const NamedValue& b) {
  if (a.name != b.name || a.unit != b.unit || a.value.index() != b.value.index()) return false;
  const auto* number = std::get_if<float>(&a.value);
  if (number == nullptr) return a.value == b.value;
  return std::bit_cast<std::uint32_t>(*number) ==
         std::bit_cast<std::uint32_t>(std::get<float>(b.value));
}

bool SameStep(const Step& a, const Step& b) {
  return a.sentences == b.sentences && std::ranges::equal(a.values, b.values, SameBits);
}

void NoteEcho(EchoStory& echo, const EchoStory* other) {
  for (Step& step : echo.steps) {
    const Step* twin = nullptr;
    if (other != nullptr) {
      const auto found = std::ranges::find(other->steps, step.name, &Step::name);
      if (found != other->steps.end()) twin = &*found;
    }
    step.note = twin == nullptr ? kOnlyHere : SameStep(step, *twin) ? "" : kDiffers;
  }
}

void NoteStories(std::vector<PixelStory>& stories, const std::vector<PixelStory>& others) {
  for (std::size_t i = 0; i < stories.size() && i < others.size(); ++i) {
    for (std::size_t slot = 0; slot < stories[i].echoes.size(); ++slot) {
      const auto& echoes = others[i].echoes;
      NoteEcho(stories[i].echoes[slot], slot < echoes.size() ? &echoes[slot] : nullptr);
    }
  }
}

// Of the packet that carries the echo first.
const PublishedPoint& PointOf(const PixelRecord& pixel, int slot) {
  const bool in_first = pixel.echoes[0].published.there && pixel.from_slot[0] == slot;
  return pixel.echoes[in_first ? 0 : 1].published;
}

bool SamePoint(const PublishedPoint& a, const PublishedPoint& b) {
  return a.distance == b.distance && a.payload == b.payload;
}

}  // namespace

void NoteDifferences(std::vector<PixelStory>& before, std::vector<PixelStory>& after) {
  NoteStories(before, after);
  NoteStories(after, before);
}

FateChanges CompareFates(const FrameStates& before, const FrameStates& after,
                         const PixelRect& rect) {
  FateChanges changes;
  for (int row = rect.first_row; row <= rect.last_row; ++row) {
    for (int col = rect.first_col; col <= rect.last_col; ++col) {
      for (int slot = 0; slot < kEchoSlots; ++slot) {
        const Fate from = FateOf(before, row, col, slot);
        const Fate to = FateOf(after, row, col, slot);
        ++changes.matrix[static_cast<std::size_t>(from)][static_cast<std::size_t>(to)];
        ++changes.echoes;
        if (from != to) {
          ++changes.changed;
        } else if (from == Fate::kPublished && !SamePoint(PointOf(before.At(row, col), slot),
                                                          PointOf(after.At(row, col), slot))) {
          ++changes.other_bytes;
        }
      }
    }
  }
  return changes;
}

}  // namespace kerul::lidar::story
