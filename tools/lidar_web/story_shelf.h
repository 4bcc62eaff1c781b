// The stories that were told last, until the browsers that asked have fetched them.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kerul::lidar::web {

class StoryShelf {
 public:
  static constexpr std::size_t kMostStories = 16;

  // Takes a page and gives its name, which no other has or will have, also after a start anew.
  std::string Add(std::vector<char> page);
  // Null for a name that is not there, or not any more.
  std::shared_ptr<const std::string> Find(std::string_view name) const;

 private:
  struct Story {
    std::string name;
    std::shared_ptr<const std::string> page;
  };
  std::deque<Story> stories_;
};

}  // namespace kerul::lidar::web
