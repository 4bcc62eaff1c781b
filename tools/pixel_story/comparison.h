// A frame under changed settings beside the same frame as configured.
#pragma once

#include <array>
#include <vector>

#include "pixel_story/fates.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

// Sets the steps' notes: kDiffers where sentences or values are not the same, kOnlyHere where the
// other story has no such step. Both hold stories of the same pixels.
inline constexpr const char* kDiffers = "differs";
inline constexpr const char* kOnlyHere = "only here";
void NoteDifferences(std::vector<PixelStory>& before, std::vector<PixelStory>& after);

struct FateChanges {
  // [before][after]: echoes with these fates
  std::array<std::array<int, kFates>, kFates> matrix{};
  int changed = 0;      // echoes whose fate is another one
  int other_bytes = 0;  // published both times, but not as the same bytes
  int echoes = 0;

  int Of(Fate before, Fate after) const noexcept {
    return matrix[static_cast<std::size_t>(before)][static_cast<std::size_t>(after)];
  }
};

// Over the rectangle. Both frames are of one size.
FateChanges CompareFates(const FrameStates& before, const FrameStates& after,
                         const PixelRect& rect);

// Calls visit(before, after, echoes) for each two fates between which echoes have gone.
template <typename Visit>
void VisitMoves(const FateChanges& changes, const Visit& visit) {
  for (std::size_t i = 0; i < kFates; ++i) {
    for (std::size_t k = 0; k < kFates; ++k) {
      const auto before = static_cast<Fate>(i);
      const auto after = static_cast<Fate>(k);
      if (i != k && changes.Of(before, after) > 0) visit(before, after, changes.Of(before, after));
    }
  }
}

}  // namespace kerul::lidar::story
