// The stories of the wanted pixels while they are being told.
#pragma once

#include <vector>

#include "pixel_story/story.h"

namespace kerul::lidar::story {

// Steps of the packet wait until the pixel's row runs: a packet that comes after it has no part in
// what was published. A row that runs again tells its pixels' stories anew.
class StoryBook {
 public:
  // A story for each pixel of the rectangle, rows outermost, with `slots` echoes each.
  StoryBook(const PixelRect& wanted, int slots);

  bool Wants(int row, int col) const noexcept { return wanted_.Contains(row, col); }
  const PixelRect& Wanted() const noexcept { return wanted_; }
  int Slots() const noexcept { return slots_; }

  // Forgets the steps of an earlier packet for this pixel. The pixel must be wanted, here and
  // below.
  void BeginPacket(int row, int col);
  void AddPacketStep(int row, int col, int slot, Step step);

  // The steps of the last packet become the beginning of the story.
  void BeginRow(int row, int col);
  void AddRowStep(int row, int col, int slot, Step step);

  // Stories without steps belong to rows that did not run.
  const std::vector<PixelStory>& Stories() const noexcept { return stories_; }

 private:
  std::size_t IndexOf(int row, int col) const noexcept;

  PixelRect wanted_;
  int slots_;
  std::vector<PixelStory> stories_;
  std::vector<std::vector<std::vector<Step>>> arrived_;  // [pixel][slot]
};

}  // namespace kerul::lidar::story
