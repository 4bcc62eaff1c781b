#include "pixel_story/comparison.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "pixel_story/fate_html.h"
#include "pixel_story/fate_text.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

Step StepOf(const std::string& name, const std::string& sentence, float value) {
  return {.name = name, .sentences = {sentence}, .values = {{"range", value, "m"}}, .plot = {}};
}

std::vector<PixelStory> StoryOf(std::vector<Step> steps) {
  return {{.row = 1, .col = 2, .echoes = {{0, std::move(steps)}}}};
}

TEST(StoryDifferences, AreNotedWhereSentencesOrBitsDiffer) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  auto before = StoryOf({StepOf("prime", "same", 1.0F), StepOf("ground", "so", 1.0F),
                         StepOf("bloom", "same", 0.0F), StepOf("order", "same", nan)});
  auto after = StoryOf({StepOf("prime", "same", 1.0F), StepOf("ground", "or so", 1.0F),
                        StepOf("bloom", "same", -0.0F), StepOf("order", "same", nan)});
  NoteDifferences(before, after);
  for (const auto& stories : {before, after}) {
    const std::vector<Step>& steps = stories[0].echoes[0].steps;
    EXPECT_EQ(steps[0].note, "");
    EXPECT_EQ(steps[1].note, "differs");
    EXPECT_EQ(steps[2].note, "differs") << "0 and -0";
    EXPECT_EQ(steps[3].note, "") << "the same NaN";
  }
}

TEST(StoryDifferences, AStepOfOneStoryAloneIsOnlyHere) {
  auto before = StoryOf({StepOf("prime", "same", 1.0F), StepOf("neighbours", "kept", 1.0F)});
  auto after = StoryOf({StepOf("prime", "same", 1.0F)});
  before[0].echoes.push_back({1, {StepOf("prime", "same", 1.0F)}});
  NoteDifferences(before, after);
  EXPECT_EQ(before[0].echoes[0].steps[0].note, "");
  EXPECT_EQ(before[0].echoes[0].steps[1].note, "only here");
  EXPECT_EQ(before[0].echoes[1].steps[0].note, "only here") << "the other has no slot 1";
  EXPECT_EQ(after[0].echoes[0].steps[0].note, "");
}

class ChangedFrames : public ::testing::Test {
 protected:
  static FrameStates StatesUnder(const DefaultConfig& config) {
    FrameStates states;
    StorySource source = SourceOf(SimulatedFrames("street", 1, 17), 0);
    source.config = config;
    RunStory(std::move(source), {&states});
    return states;
  }
  const DefaultConfig& default_ = default_config::kConfig;
};

TEST_F(ChangedFrames, TheSameSettingsChangeNothing) {
  const FrameStates states = StatesUnder(default_);
  const FateChanges changes = CompareFates(states, states, WholeFrame(states));
  EXPECT_EQ(changes.echoes, 216 * 288 * 2);
  EXPECT_EQ(changes.changed, 0);
  EXPECT_EQ(changes.other_bytes, 0);
}

// Row and column sums of the matrix are the counts of the two tables.
TEST_F(ChangedFrames, TheMatrixAddsUpToBothTables) {
  DefaultConfig config = default_;
  config.neighbor_check_enable = false;
  const FrameStates before = StatesUnder(default_);
  const FrameStates after = StatesUnder(config);
  const PixelRect rect = WholeFrame(before);
  const FateChanges changes = CompareFates(before, after, rect);
  const FateTable from = CountFates(before, rect);
  const FateTable to = CountFates(after, rect);
  int moved = 0;
  for (std::size_t i = 0; i < kFates; ++i) {
    int row = 0;
    int column = 0;
    for (std::size_t k = 0; k < kFates; ++k) {
      row += changes.matrix[i][k];
      column += changes.matrix[k][i];
      if (i != k) moved += changes.matrix[i][k];
    }
    EXPECT_EQ(row, from.Of(static_cast<Fate>(i))) << NameOf(static_cast<Fate>(i));
    EXPECT_EQ(column, to.Of(static_cast<Fate>(i))) << NameOf(static_cast<Fate>(i));
  }
  EXPECT_EQ(moved, changes.changed);
  EXPECT_EQ(to.Of(Fate::kIsolated), 0);
  EXPECT_GT(changes.Of(Fate::kIsolated, Fate::kPublished), 1000);
  EXPECT_GT(changes.other_bytes, 1000) << "what was smoothed is not any more";
}

// Mode 12 publishes flags beside the same ranges: no fate changes, but payloads do.
TEST_F(ChangedFrames, OtherBytesOfTheSameFateAreCounted) {
  DefaultConfig config = default_;
  config.output_mode = 12;
  const FrameStates before = StatesUnder(default_);
  const FrameStates after = StatesUnder(config);
  const PixelRect rect = WholeFrame(before);
  const FateChanges changes = CompareFates(before, after, rect);
  int other = 0;
  for (int row = 0; row < 216; ++row) {
    for (int col = 0; col < 288; ++col) {
      const PublishedPoint& a = before.At(row, col).echoes[0].published;
      const PublishedPoint& b = after.At(row, col).echoes[0].published;
      if (a.distance == 0 || b.distance == 0) continue;
      other += a.distance != b.distance || a.payload != b.payload ? 1 : 0;
    }
  }
  EXPECT_EQ(changes.other_bytes, other);
  EXPECT_GT(other, 1000);
}

TEST(ChangesText, NamesEachMove) {
  FateChanges changes{.matrix = {}, .changed = 5, .other_bytes = 2, .echoes = 20};
  changes.matrix[0][0] = 13;
  changes.matrix[static_cast<std::size_t>(Fate::kIsolated)][0] = 5;
  std::ostringstream out;
  WriteChanges(out, changes);
  EXPECT_EQ(out.str(),
            "5 of 20 echoes have another fate; 2 more are published with other bytes\n"
            "       5   erased by neighbour validation -> published\n");
  EXPECT_NE(ChangesMarkup(changes).find("<td>erased by neighbour validation</td>"
                                        "<td>published</td><td>5</td>"),
            std::string::npos);
}

}  // namespace
}  // namespace kerul::lidar::story
