// Tells the row passes and the published bytes of the wanted pixels.
#pragma once

#include <vector>

#include "pixel_story/story_book.h"
#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

class RowStory : public StoryWatcher {
 public:
  // The book must outlive it.
  explicit RowStory(StoryBook& book) : book_(book) {}

  void Begin(const NodeParts& parts) override;
  void OnRowBegins(const RowMoment& moment) override;
  void OnPass(const PassMoment& moment) override;
  void OnRowPublished(const RowMoment& moment, const std::vector<ReceivedPacket>& packets) override;

 private:
  StoryBook& book_;
  const NodeParts* parts_ = nullptr;
};

}  // namespace kerul::lidar::story
