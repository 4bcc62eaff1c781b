#include "pixel_story/story_book.h"

#include <cstddef>
#include <utility>

namespace kerul::lidar::story {

StoryBook::StoryBook(const PixelRect& wanted, int slots) : wanted_(wanted), slots_(slots) {
  for (int row = wanted.first_row; row <= wanted.last_row; ++row) {
    for (int col = wanted.first_col; col <= wanted.last_col; ++col) {
      PixelStory story{.row = row, .col = col, .echoes = {}};
      for (int slot = 0; slot < slots; ++slot) story.echoes.push_back({.slot = slot, .steps = {}});
      stories_.push_back(std::move(story));
    }
  }
  arrived_.resize(stories_.size(), std::vector<std::vector<Step>>(static_cast<std::size_t>(slots)));
}

std::size_t StoryBook::IndexOf(int row, int col) const noexcept {
  const int width = wanted_.last_col - wanted_.first_col + 1;
  return static_cast<std::size_t>((row - wanted_.first_row) * width + col - wanted_.first_col);
}

void StoryBook::BeginPacket(int row, int col) {
  for (std::vector<Step>& steps : arrived_[IndexOf(row, col)]) steps.clear();
}

void StoryBook::AddPacketStep(int row, int col, int slot, Step step) {
  arrived_[IndexOf(row, col)][static_cast<std::size_t>(slot)].push_back(std::move(step));
}

void StoryBook::BeginRow(int row, int col) {
  const std::size_t index = IndexOf(row, col);
  for (EchoStory& echo : stories_[index].echoes) {
    echo.steps = arrived_[index][static_cast<std::size_t>(echo.slot)];
  }
}

void StoryBook::AddRowStep(int row, int col, int slot, Step step) {
  stories_[IndexOf(row, col)].echoes[static_cast<std::size_t>(slot)].steps.push_back(
      std::move(step));
}

}  // namespace kerul::lidar::story
