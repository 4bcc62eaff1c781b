#include "pixel_story/story_account.h"

#include <utility>

#include "pixel_story/packet_story.h"
#include "pixel_story/row_story.h"

namespace kerul::lidar::story {
namespace {

constexpr PixelRect kNoPixels{0, 0, -1, -1};

}  // namespace

Account TellFrame(StorySource source, const AccountWish& wish) {
  Account account;
  StoryBook book(wish.stories ? wish.wanted : kNoPixels, source.config.echo_num);
  PacketStory packets(book);
  RowStory rows(book);
  std::vector<StoryWatcher*> watchers{&account.published};
  if (wish.stories) watchers.insert(watchers.end(), {&packets, &rows});
  if (wish.fates) watchers.push_back(&account.states);
  account.end = RunStory(std::move(source), watchers);
  account.stories = book.Stories();
  return account;
}

}  // namespace kerul::lidar::story
