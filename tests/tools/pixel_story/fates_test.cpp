// Every echo has one fate: the counts against the raw packets, the published bytes and the told
// sentences.
#include "pixel_story/fates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "pixel_story/packet_story.h"
#include "pixel_story/row_story.h"
#include "sensor_simulator/scenes.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

constexpr int kEchoes = 216 * 288 * 2;

// Windows that begin after bin 1000: the two words after the first of each pixel block of 72
// bytes. Two words of 12 bits share three bytes: the even one a * 16 + low half of c, the odd one
// b * 16 + high half of c.
int WindowsThatAreNone(const Stream& stream) {
  int none = 0;
  for (const UdpPacket& packet : stream) {
    for (int block = 0; block < 9; ++block) {
      const std::uint8_t* bytes = packet.buffer + 20 + 72 * block;
      none += bytes[1] * 16 + (bytes[2] >> 4) > 1000 ? 1 : 0;
      none += bytes[3] * 16 + (bytes[5] & 0xF) > 1000 ? 1 : 0;
    }
  }
  return none;
}

// Points that were published with a range.
class PublishedRanges : public StoryWatcher {
 public:
  int count = 0;

 private:
  void OnRowPublished(const RowMoment& /*moment*/,
                      const std::vector<ReceivedPacket>& packets) override {
    for (const ReceivedPacket& packet : packets) {
      for (int i = 0; i < 36; ++i) {
        const std::uint8_t* bytes = packet.bytes + 20 + 5 * i;
        count += bytes[0] != 0 || bytes[1] != 0 ? 1 : 0;
      }
    }
  }
};

int ExpectCountsAddUp(const FateTable& table) {
  EXPECT_EQ(table.SumOfFates(), kEchoes);
  for (std::size_t slot = 0; slot < 2; ++slot) {
    int sum = 0;
    for (const auto& counts : table.fates) sum += counts[slot];
    EXPECT_EQ(sum, kEchoes / 2) << "slot " << slot;
  }
  return table.Of(Fate::kPublished);
}

// Holes without a window that were filled.
int PublishedWithoutWindow(const FrameStates& states) {
  int holes = 0;
  for (int row = 0; row < states.Height(); ++row) {
    for (int col = 0; col < states.Width(); ++col) {
      const EchoState& last = states.At(row, col).echoes[0].states.back();
      const bool is_hole = states.At(row, col).echoes[0].arrival == Arrival::kNoWindow;
      holes += is_hole && last.fill_point && last.dist_proc > 0.0F ? 1 : 0;
    }
  }
  return holes;
}

class FatesOfEveryScene : public ::testing::TestWithParam<std::string> {};

TEST_P(FatesOfEveryScene, AddUpAndAgreeWithWhatCameInAndWentOut) {
  const Stream stream = SimulatedFrames(GetParam(), 1, 17);
  FrameStates states;
  PublishedRanges ranges;
  RunStory(SourceOf(stream, 0), {&states, &ranges});
  const FateTable table = CountFates(states, WholeFrame(states));
  EXPECT_EQ(ExpectCountsAddUp(table), ranges.count);
  EXPECT_EQ(table.Of(Fate::kNoWindow) + PublishedWithoutWindow(states), WindowsThatAreNone(stream));
  EXPECT_EQ(table.Of(Fate::kNoPacket), 0);
  EXPECT_EQ(table.Of(Fate::kRowNotRun), 0);
  EXPECT_EQ(table.Of(Fate::kNoRange), 0);
}

INSTANTIATE_TEST_SUITE_P(Story, FatesOfEveryScene, ::testing::ValuesIn(simulator::SceneNames()),
                         [](const auto& scene) { return scene.param; });

// ---- Against the sentences ----

const Step* Find(const EchoStory& echo, const std::string& name) {
  const auto step = std::ranges::find(echo.steps, name, &Step::name);
  return step == echo.steps.end() ? nullptr : &*step;
}

bool Says(const EchoStory& echo, const std::string& name, const std::string& words) {
  const Step* step = Find(echo, name);
  if (step == nullptr) return false;
  return std::ranges::any_of(step->sentences, [&](const std::string& sentence) {
    return sentence.find(words) != std::string::npos;
  });
}

bool HasRange(const EchoStory& echo, const std::string& name, const std::string& value) {
  const Step* step = Find(echo, name);
  if (step == nullptr) return false;
  const auto found = std::ranges::find(step->values, value, &NamedValue::name);
  return found != step->values.end() && std::get<float>(found->value) > 0.0F;
}

// The slot that the pixel's only packet carries.
int CarriedSlot(const PixelStory& story) {
  const Step* order = Find(story.echoes[0], "order");
  const auto from = std::ranges::find(order->values, "from_slot", &NamedValue::name);
  return static_cast<int>(std::get<std::int64_t>(from->value));
}

// The fate that the story tells, with the default settings.
Fate ToldFate(const PixelStory& story, int slot) {
  const EchoStory& echo = story.echoes[static_cast<std::size_t>(slot)];
  if (HasRange(echo, "bloom", "dist_proc")) {
    if (CarriedSlot(story) != slot) return Fate::kNotChosen;
    return Says(story.echoes[0], "published", "published: range") ? Fate::kPublished
                                                                  : Fate::kOutOfRange;
  }
  if (Says(echo, "bloom", "erased by the bloom filter")) return Fate::kBloom;
  if (HasRange(echo, "neighbours", "dist_proc")) return Fate::kShotNoise;
  if (Says(echo, "neighbours", "it is an after-pulse")) return Fate::kAfterPulse;
  if (Says(echo, "neighbours", "erased by neighbour validation")) return Fate::kIsolated;
  if (Says(echo, "raw_range", "the pulse is dropped")) return Fate::kTooWide;
  if (Says(echo, "samples", "o window: ")) return Fate::kNoWindow;
  return Fate::kBelowLevel;
}

struct Band {
  std::string scene;
  int first_row;
};

class FatesAndSentences : public ::testing::TestWithParam<Band> {};

TEST_P(FatesAndSentences, TellTheSameOfEachEcho) {
  const int first = GetParam().first_row;
  StoryBook book({first, 0, first + 11, 287}, 2);
  PacketStory packets(book);
  RowStory rows(book);
  FrameStates states;
  RunStory(SourceOf(SimulatedFrames(GetParam().scene, 1, 17), 0), {&packets, &rows, &states});
  std::array<int, kFates> seen{};
  for (const PixelStory& story : book.Stories()) {
    for (int slot = 0; slot < 2; ++slot) {
      const Fate fate = FateOf(states, story.row, story.col, slot);
      ++seen[static_cast<std::size_t>(fate)];
      ASSERT_EQ(NameOf(fate), NameOf(ToldFate(story, slot)))
          << "pixel " << story.row << ',' << story.col << ", slot " << slot;
    }
  }
  int kinds = 0;
  for (const int count : seen) kinds += count > 0 ? 1 : 0;
  EXPECT_GE(kinds, 6) << "fates that occur in these rows";
}

INSTANTIATE_TEST_SUITE_P(Story, FatesAndSentences,
                         ::testing::Values(Band{"crosstalk", 84}, Band{"retro", 108},
                                           Band{"street", 96}),
                         [](const auto& band) { return band.param.scene; });

// ---- What streams and settings do ----

FateTable TableOf(Stream stream, const DefaultConfig& config = default_config::kConfig) {
  FrameStates states;
  StorySource source = SourceOf(std::move(stream), 0);
  source.config = config;
  RunStory(std::move(source), {&states});
  return CountFates(states, WholeFrame(states));
}

TEST(Fates, PixelsWhosePacketIsLostAndRowsThatDoNotRunAreCountedAsSuch) {
  Stream stream = SimulatedFrames("targets", 1);
  stream.resize(10 * 192 + 1);
  stream.erase(stream.begin() + 3 * 192 + 5);
  const FateTable table = TableOf(stream);
  ExpectCountsAddUp(table);
  EXPECT_EQ(table.Of(Fate::kNoPacket), 9 * 2) << "a packet has nine pixels with two slots";
  EXPECT_EQ(table.Of(Fate::kRowNotRun), (36 - 9) * 6 * 288 * 2);
}

TEST(Fates, WithOneEchoTheSecondSlotIsNotInUse) {
  DefaultConfig config = default_config::kConfig;
  config.echo_num = 1;
  const FateTable table = TableOf(SimulatedFrames("street", 1), config);
  ExpectCountsAddUp(table);
  EXPECT_EQ(table.Of(Fate::kSlotNotInUse), kEchoes / 2);
  EXPECT_EQ(table.fates[static_cast<std::size_t>(Fate::kPublished)][1], 0);
  EXPECT_EQ(table.Of(Fate::kNotChosen), 0);
}

// Code 34 has slot 0 in the first packet and slot 1 in the second, 33 slot 0 in both.
TEST(Fates, WithTwoPacketsABlockEachSlotIsPublishedOrOneOfThemTwice) {
  const Stream stream = SimulatedFrames("street", 1);
  DefaultConfig config = default_config::kConfig;
  config.echo_output_code = 34;
  const FateTable both = TableOf(stream, config);
  ExpectCountsAddUp(both);
  EXPECT_EQ(both.Of(Fate::kNotChosen), 0);
  EXPECT_EQ(both.Of(Mark::kTwice), 0);
  EXPECT_GT(both.fates[0][1], 1000);

  config.echo_output_code = 33;
  const FateTable twice = TableOf(stream, config);
  ExpectCountsAddUp(twice);
  EXPECT_EQ(twice.Of(Mark::kTwice), twice.Of(Fate::kPublished));
  EXPECT_EQ(twice.Of(Fate::kPublished), both.fates[0][0]);
  EXPECT_EQ(twice.Of(Fate::kNotChosen), both.fates[0][1]);
}

// Without the calibration there are no passes but priming, so nothing is erased.
TEST(Fates, WithoutCalibrationWhatHasARangeIsPublishedOrNotChosen) {
  DefaultConfig config = default_config::kConfig;
  config.calib_enable = false;
  const FateTable table = TableOf(SimulatedFrames("retro", 1), config);
  ExpectCountsAddUp(table);
  for (const Fate fate : {Fate::kBloom, Fate::kShotNoise, Fate::kIsolated, Fate::kAfterPulse}) {
    EXPECT_EQ(table.Of(fate), 0) << NameOf(fate);
  }
  EXPECT_GT(table.Of(Fate::kPublished), 20000);
}

// A packet held back by four rows completes its row late, and the rows after it run once more. What
// their first run erased is not there any more in the second.
TEST(Fates, ARowThatRunsAgainKeepsWhatItsFirstRunErased) {
  Stream stream = SimulatedFrames("noise", 1);
  const FateTable in_order = TableOf(stream);
  const UdpPacket held_back = stream[1000];
  stream.erase(stream.begin() + 1000);
  stream.insert(stream.begin() + 1000 + 4 * 192, held_back);
  FrameStates states;
  const StoryEnd end = RunStory(SourceOf(stream, 0), {&states});
  ASSERT_GT(end.published_rows, 36);
  const FateTable table = CountFates(states, WholeFrame(states));
  ExpectCountsAddUp(table);
  EXPECT_EQ(table.Of(Fate::kNoRange), 0);
  EXPECT_EQ(table.Of(Fate::kNoPacket), 0);
  int erased_before = 0;
  for (int row = 36; row < 60; ++row) {
    for (int col = 0; col < 288; ++col) {
      const EchoRecord& echo = states.At(row, col).echoes[1];
      if (!echo.erased_before) continue;
      ++erased_before;
      const Fate fate = FateOf(states, row, col, 1);
      EXPECT_TRUE(fate == Fate::kIsolated || fate == Fate::kAfterPulse) << NameOf(fate);
    }
  }
  EXPECT_GT(erased_before, 100);
  EXPECT_NEAR(table.Of(Fate::kIsolated), in_order.Of(Fate::kIsolated), 2000)
      << "a second validation finds fewer neighbours, but only in these rows";
}

// The first packet again, with windows that begin after the last bin, when its row has run.
TEST(Fates, APacketThatComesAfterItsRowRanChangesNoFate) {
  const Stream stream = SimulatedFrames("street", 1);
  Stream with_late = stream;
  UdpPacket late = stream[0];
  for (int block = 0; block < 9; ++block) {
    std::fill_n(late.buffer + 20 + 72 * block + 1, 2, std::uint8_t{0xFF});
    std::fill_n(late.buffer + 20 + 72 * block + 3, 1, std::uint8_t{0xFF});
  }
  with_late.insert(with_late.begin() + 20 * 192, late);
  FrameStates states;
  StorySource source = SourceOf(with_late, 0);
  ASSERT_EQ(RunStory(std::move(source), {&states}).published_rows, 36) << "none runs again";
  EXPECT_EQ(CountFates(states, WholeFrame(states)).fates, TableOf(stream).fates);
  EXPECT_GT(WindowsThatAreNone({late}), WindowsThatAreNone({stream[0]}) + 5);
}

// A pixel whose range is beyond the far limit: the crosstalk scene has some.
TEST(Fates, ARangeBeyondTheLimitsIsCountedOutOfRange) {
  FrameStates states;
  RunStory(SourceOf(SimulatedFrames("crosstalk", 1, 17), 0), {&states});
  int beyond = 0;
  for (int row = 0; row < states.Height(); ++row) {
    for (int col = 0; col < states.Width(); ++col) {
      const PixelRecord& pixel = states.At(row, col);
      const int slot = pixel.from_slot[0];
      const float range = pixel.echoes[static_cast<std::size_t>(slot)]
                              .states[MomentAfter(RowPass::kBloom)]
                              .dist_proc;
      const bool is_beyond = range >= 40.0F || (range > 0.0F && range <= 0.05F);
      EXPECT_EQ(FateOf(states, row, col, slot) == Fate::kOutOfRange, is_beyond)
          << row << ',' << col;
      beyond += is_beyond ? 1 : 0;
    }
  }
  EXPECT_GT(beyond, 100);
}

// ---- Marks, by hand ----

EchoState State(float raw, float processed, float reflectivity = 50.0F) {
  return {.dist_raw = raw, .refl_raw = 50.0F, .dist_proc = processed, .refl_proc = reflectivity};
}

bool HasMarkOf(const EchoRecord& echo, Mark mark) {
  PixelRecord pixel;
  pixel.echoes[0] = echo;
  return HasMark(pixel, 0, mark);
}

TEST(FateMarks, AFilledHoleIsNotSmoothedAndAnErasedEchoIsNoHole) {
  EchoRecord filled;
  EchoState state = State(0.0F, 4.0F);
  state.fill_point = true;
  filled.states.fill(state);
  EXPECT_TRUE(HasMarkOf(filled, Mark::kFilled));
  EXPECT_FALSE(HasMarkOf(filled, Mark::kRefilled));
  EXPECT_FALSE(HasMarkOf(filled, Mark::kSmoothed));
  filled.states[0] = State(3.0F, 0.0F);
  EXPECT_FALSE(HasMarkOf(filled, Mark::kFilled));
  EXPECT_TRUE(HasMarkOf(filled, Mark::kRefilled));
}

TEST(FateMarks, ABloomEchoIsDimmedWhenItsReflectivityFellInThatPass) {
  EchoRecord echo;
  echo.states.fill(State(4.0F, 4.0F));
  EXPECT_FALSE(HasMarkOf(echo, Mark::kBloomDimmed));
  EXPECT_FALSE(HasMarkOf(echo, Mark::kSmoothed));
  echo.states[MomentAfter(RowPass::kBloom)] = State(4.0F, 4.0F, 49.0F);
  EXPECT_TRUE(HasMarkOf(echo, Mark::kBloomDimmed));
  EXPECT_FALSE(HasMarkOf(echo, Mark::kBloomMarked));
  echo.states[MomentAfter(RowPass::kNeighbours)] = State(4.0F, 4.1F);
  EXPECT_TRUE(HasMarkOf(echo, Mark::kSmoothed));
}

}  // namespace
}  // namespace kerul::lidar::story
