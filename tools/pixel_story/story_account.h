// All that is told of one frame under one configuration.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "pixel_story/frame_states.h"
#include "pixel_story/published_packets.h"
#include "pixel_story/story.h"
#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

struct AccountWish {
  PixelRect wanted;
  bool stories = true;  // of the wanted pixels
  bool fates = false;   // of the whole frame
};

struct Account {
  std::vector<PixelStory> stories;
  FrameStates states;  // empty without fates
  PublishedPackets published;
  StoryEnd end;
};

// Throws what RunStory throws.
Account TellFrame(StorySource source, const AccountWish& wish);

}  // namespace kerul::lidar::story
