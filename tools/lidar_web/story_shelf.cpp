#include "lidar_web/story_shelf.h"

#include <algorithm>
#include <random>

#include "lidar_web/request.h"

namespace kerul::lidar::web {
namespace {

std::string NewName() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::random_device chance;
  std::string name(kStoryNameLength, '0');
  for (char& digit : name) digit = kDigits[chance() % 16];
  return name;
}

}  // namespace

std::string StoryShelf::Add(std::vector<char> page) {
  if (stories_.size() == kMostStories) stories_.pop_front();
  stories_.push_back({NewName(), std::make_shared<const std::string>(page.begin(), page.end())});
  return stories_.back().name;
}

std::shared_ptr<const std::string> StoryShelf::Find(std::string_view name) const {
  const auto story = std::find_if(stories_.begin(), stories_.end(),
                                  [&](const Story& one) { return one.name == name; });
  return story == stories_.end() ? nullptr : story->page;
}

}  // namespace kerul::lidar::web
