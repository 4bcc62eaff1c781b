// The steps of one pass over one miniflash row, for the wanted pixels of it.
#pragma once

#include <string>
#include <vector>

#include "pixel_story/story_book.h"
#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

class PassSheet {
 public:
  // Steps with the pass's name for the wanted pixels in this row's `row_height` pixel rows.
  PassSheet(const StoryBook& book, std::string name, int m_row, int row_height);

  bool IsEmpty() const noexcept { return steps_.empty(); }
  // Null where nothing is wanted.
  Step* Find(int row, int col, int slot) noexcept;
  // Adds a sentence where the pixel is wanted.
  void Say(int row, int col, int slot, std::string sentence);

  // Calls visit(row, col, slot, step) for each step.
  template <typename Visit>
  void VisitAll(const Visit& visit) {
    std::size_t i = 0;
    for (int row = rect_.first_row; row <= rect_.last_row; ++row) {
      for (int col = rect_.first_col; col <= rect_.last_col; ++col) {
        for (int slot = 0; slot < slots_; ++slot) visit(row, col, slot, steps_[i++]);
      }
    }
  }

 private:
  PixelRect rect_;  // empty where last_row < first_row
  int slots_;
  std::vector<Step> steps_;  // rows, columns, slots
};

// The fields that the passes write, as named values of the step.
void AddState(Step& step, const LidarEcho& echo);

// Throws std::runtime_error when a record of the rows differs between what the telling form made of
// a pass (`told`) and what the node's own form made of it: the sentences would not be the node's
// then.
void HoldAgainst(const LidarFrame& told, const PassMoment& moment);

}  // namespace kerul::lidar::story
