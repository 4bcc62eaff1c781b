#include "pixel_story/packet_story.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "MIPI_reader/parser/packet_context.h"
#include "pixel_story/echo_steps.h"
#include "story_fixture.h"
#include "support/raw_packet_builder.h"

namespace kerul::lidar::story {
namespace {

using testing::BlockSamples;
using testing::EchoWindow;

// Sums around sample 8 are 8, 28, 64, 76, 64, 28, 8.
constexpr EchoWindow kRounded = {0, 0, 0, 0, 0, 0, 8, 20, 36, 20, 8, 0, 0, 0, 0, 0, 0};

// A parser without tables of its own, 160 shots, and a detection level of 36 for every noise.
class EchoSentences : public ::testing::Test {
 protected:
  EchoSentences() {
    LidarPoint::echo_num = 2;
    parser_.detect_threshold_bins = {36};
    parser_.baseline_samples = 4;
    parser_.baseline_rise_gate = 1000.0F;
    parser_.cogw_high_mode = 0;
  }
  ~EchoSentences() override { LidarPoint::echo_num = 1; }

  // Noise 0, so that the baseline is 0 levels, unless given.
  std::vector<Step> Tell(const EchoWindow& window, int slot = 0, int noise = 0, int bin = 100) {
    BlockSamples block = testing::EmptyPixel(7);
    block[5] = static_cast<std::uint16_t>(noise);
    testing::SetWindow(block, slot, window, bin);
    UdpPacket packet = testing::MakeRawPacket(3, 1000);
    testing::SetBlock(packet, 2, block);
    const PacketContext context = ContextOf(parser_, ReadRawHeader(packet.buffer), 2);
    return EchoSteps(WalkPacketRoad(context, packet.buffer, 2, {}), slot);
  }

  LidarParserQDV11 parser_;
};

TEST_F(EchoSentences, TellsTheSixStepsInTheirOrder) {
  std::vector<std::string> names;
  for (const Step& step : Tell(kRounded)) names.push_back(step.name);
  EXPECT_EQ(names, (std::vector<std::string>{"samples", "baseline", "thresholds", "edges", "centre",
                                             "raw_range"}));
}

// Noise 0 has a baseline of 0, so a fifth of the centre's 76 is the threshold: 15.2. On the left it
// is crossed between sums 6 (28) and 5 (8): 5 + 7.2 / 20 = 5.36, on the right at 10.64. The window
// is symmetrical about sample 8.
TEST_F(EchoSentences, TellsTheWayFromSamplesToRange) {
  const std::vector<Step> steps = Tell(kRounded);
  EXPECT_EQ(steps[0].sentences,
            (std::vector<std::string>{
                "pixel id 7 of miniflash row 5, column slot 0, in the packet with sequence number "
                "1001",
                "17 samples from bin 100 on", "no sample is cut"}));
  EXPECT_EQ(steps[1].sentences,
            (std::vector<std::string>{
                "a noise of 0 raw units at 160 shots is a baseline of 0 levels (sums of three "
                "samples)",
                "the mean of the first 4 samples, 0 levels, is not above the baseline of 0: the "
                "baseline stays"}));
  EXPECT_EQ(steps[2].sentences,
            (std::vector<std::string>{
                "the detection level is 36: entry 0 of its table, from noise 0 at a shot ratio of "
                "1",
                "the peak of 76 levels against 36 gives a peak ratio of 2.1111, above 1: a sure "
                "pulse",
                "the low threshold is 15.2 levels above the baseline: the larger of the noise's 0 "
                "and a fifth of the centre's sum, 15.2",
                "the high width is not measured: it is switched off"}));
  EXPECT_EQ(steps[3].sentences,
            (std::vector<std::string>{
                "at the low threshold the pulse goes from sample 5.36 to 10.64: a width of 5.28 "
                "bins"}));
  EXPECT_EQ(steps[5].sentences,
            (std::vector<std::string>{"bin 100 and sample 8, at 0.15 m a bin: 16.2 m"}));
}

// 76 against 100 is 0.76; 70 of 100 is not above 0.7.
TEST_F(EchoSentences, TellsANearMissAndAWindowWithoutAPulse) {
  parser_.detect_threshold_bins = {100};
  EXPECT_EQ(Tell(kRounded)[2].sentences[1],
            "the peak of 76 levels against 100 gives a peak ratio of 0.76, not above 1 but above "
            "0.7: a near miss, which later passes judge");
  parser_.detect_threshold_bins = {200};
  const std::vector<Step> none = Tell(kRounded);
  EXPECT_EQ(
      none[2].sentences[1],
      "the peak of 76 levels against 200 gives a peak ratio of 0.38, not above 0.7: no pulse, "
      "the window gives no echo");
  EXPECT_EQ(none[5].sentences, (std::vector<std::string>{"no pulse, no range"}));
  EXPECT_FALSE(none[3].plot);
}

TEST_F(EchoSentences, TellsAWindowThatIsNone) {
  const std::vector<Step> steps = Tell(kRounded, 0, 0, 1001);
  EXPECT_EQ(steps[0].sentences[1],
            "no window: it would begin at bin 1001, the last bin to begin at is 1000");
  EXPECT_EQ(steps[1].sentences, (std::vector<std::string>{"no window, no baseline"}));
  EXPECT_FALSE(steps[0].plot);
}

// Head samples of 4, 4, 4, 4: a mean of 12 levels over a baseline of 0. The pulse of 76 less 12 is
// 64. Wanted is 12 + 1, the limit 10, and 10 is above the 7 of a bright target. In units of noise:
// 2048 * 10 / 160 / 3 = 42.667.
TEST_F(EchoSentences, TellsWhyTheBaselineFollowsTheHead) {
  EchoWindow window = kRounded;
  for (std::size_t i = 0; i < 4; ++i) window[i] = 4;
  EXPECT_EQ(Tell(window)[1].sentences[2],
            "the pulse at the centre, 64 levels above the head, is not above 1000: the baseline "
            "stays");
  parser_.baseline_rise_gate = 63.0F;
  parser_.baseline_rise_limit = 10.0F;
  const Step step = Tell(window)[1];
  EXPECT_EQ(step.sentences,
            (std::vector<std::string>{
                "a noise of 0 raw units at 160 shots is a baseline of 0 levels (sums of three "
                "samples)",
                "the mean of the first 4 samples, 12 levels, is above the baseline of 0 by 12",
                "the pulse at the centre, 64 levels above the head, is above 63: the baseline "
                "rises by the smaller of 13 and the limit 10, to 10 levels, and the noise by "
                "42.667",
                "the rise of 10 is above 7: a bright target"}));
  parser_.baseline_rise_limit = 20.0F;  // 2048 * 13 / 160 / 3 is 55.467
  EXPECT_EQ(Tell(window)[1].sentences[2],
            "the pulse at the centre, 64 levels above the head, is above 63: the baseline rises by "
            "the smaller of 13 and the limit 20, to 13 levels, and the noise by 55.467");
  EXPECT_EQ(Tell(window, 1)[1].sentences[1], "the baseline of a second window is never adapted");
}

// Noise 64 at 160 shots is 3 * 160 * 64 / 2048 = 15 levels; a third of 15 and 3 * sqrt(15)
// is 8.873.
TEST_F(EchoSentences, TellsWhichSamplesAreCut) {
  parser_.clip_side_peaks = true;
  EchoWindow window = kRounded;
  window[2] = 9;
  window[13] = 30;
  const Step step = Tell(window, 0, 64)[0];
  EXPECT_EQ(step.sentences[2],
            "the highest sample, 8, is 36; other peaks are cut to 8.873: samples 2 and 13");
  ASSERT_TRUE(step.plot);
  EXPECT_EQ(step.plot->marked, (std::vector<std::size_t>{2, 13}));
  EXPECT_EQ(step.plot->bars[13], 30.0F) << "drawn as received";
  EXPECT_EQ(Tell(EchoWindow{}, 0, 64)[0].sentences[2],
            "the highest sample, 0, is 0, not above the 8.873 from which on side peaks are cut");
}

TEST_F(EchoSentences, PlotsTheSamplesWithAllThatWasFoundInThem) {
  parser_.cogw_high_mode = 1;
  const std::vector<Step> steps = Tell(kRounded);
  const Plot& plot = *steps[0].plot;
  ASSERT_EQ(plot.bars.size(), 17U);
  EXPECT_EQ(plot.bars[8], 36.0F);
  ASSERT_EQ(plot.levels.size(), 4U);
  EXPECT_EQ(plot.levels[1].name, "detection level");
  EXPECT_EQ(plot.levels[1].y, 12.0F);  // a third of 36
  ASSERT_EQ(plot.marks.size(), 1U);
  // Within the rounding of the divisions.
  EXPECT_NEAR(plot.marks[0].x, 8.0F, 1e-5F);
  ASSERT_EQ(plot.spans.size(), 2U);
  EXPECT_NEAR(plot.spans[0].from, 5.36F, 1e-5F);
  EXPECT_EQ(steps[3].plot->bars[8], 76.0F);
}

// The watcher with one packet of a simulated frame.
class PacketWatch : public ::testing::Test {
 protected:
  PacketWatch()
      : node_(default_config::kConfig, CalibrationDir()),
        parts_(node_.Parts()),
        twin_(parts_),
        packet_(SimulatedFrames("street", 1)[1000]) {
    twin_.Parse(packet_);
    const PacketMoment moment = twin_.Take(packet_);
    parsed_ = moment.parsed;
    calibrated_ = moment.calibrated;
  }

  void Watch(StoryBook& book) {
    PacketStory story(book);
    story.Begin(parts_);
    story.OnPacket({packet_, 1000, parsed_, calibrated_});
  }
  StoryBook BookOf(const LidarPoint& point) const {
    return StoryBook({point.row, point.col, point.row, point.col}, 2);
  }

  WatchedNode node_;
  NodeParts parts_;
  FrameTwin twin_;
  UdpPacket packet_;
  std::vector<LidarPoint> parsed_;
  std::vector<LidarPoint> calibrated_;
};

TEST_F(PacketWatch, TellsElevenStepsOfEachSlotOfAWantedPixel) {
  const LidarPoint& point = calibrated_[4];
  StoryBook book = BookOf(point);
  Watch(book);
  book.BeginRow(point.row, point.col);
  ASSERT_EQ(book.Stories().size(), 1U);
  for (const EchoStory& echo : book.Stories()[0].echoes) {
    ASSERT_EQ(echo.steps.size(), 11U);
    EXPECT_EQ(echo.steps[6].name, "environment");
    EXPECT_EQ(echo.steps[10].name, "reflectivity");
  }
}

TEST_F(PacketWatch, RefusesAStoryThatDoesNotEndInTheNodesRecord) {
  StoryBook book = BookOf(calibrated_[4]);
  parsed_[4].echoes[0].cogh += 1.0F;
  EXPECT_THROW(Watch(book), std::runtime_error);
  parsed_[4].echoes[0].cogh -= 1.0F;
  calibrated_[4].echoes[1].refl_raw += 1.0F;
  EXPECT_THROW(Watch(book), std::runtime_error);
}

}  // namespace
}  // namespace kerul::lidar::story
