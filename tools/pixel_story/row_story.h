// Tells the row passes and the published bytes of the wanted pixels.
#pragma once

#include <vector>

#include "pixel_story/pass_sheet.h"
#include "pixel_story/story_book.h"
#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

// For each pass, its telling form runs over a copy of the rows as the pass found them, and what it
// makes of them is held against what the node's pass made: where they differ, OnPass throws
// std::runtime_error.
class RowStory : public StoryWatcher {
 public:
  // The book must outlive it.
  explicit RowStory(StoryBook& book) : book_(book) {}

  void Begin(const NodeParts& parts) override;
  void OnRowBegins(const RowMoment& moment) override;
  void OnPass(const PassMoment& moment) override;
  void OnRowPublished(const RowMoment& moment, const std::vector<ReceivedPacket>& packets) override;

 private:
  void AddSteps(PassSheet& sheet, const LidarFrame& after);

  StoryBook& book_;
  int output_mode_ = 0;
  bool publishes_slot_1_ = false;
  LidarFrame told_;  // the rows in sight that the telling form works on
};

}  // namespace kerul::lidar::story
