// What the stories tell, against what the passes did and what a node published, for every pixel.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "lidar_replay/replay.h"
#include "pixel_story/frame_states.h"
#include "pixel_story/row_story.h"
#include "sensor_simulator/capture_file.h"
#include "sensor_simulator/scenes.h"
#include "story_fixture.h"

namespace kerul::lidar::story {
namespace {

constexpr int kRows = 216;
constexpr int kCols = 288;
// A story of a whole frame would take a gigabyte.
constexpr int kRowsAtATime = 36;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRowStride = 5 * kRowsAtATime;
#else
constexpr int kRowStride = kRowsAtATime;
#endif

float NumberOf(const Step& step, const std::string& name) {
  for (const NamedValue& value : step.values) {
    if (value.name != name) continue;
    if (const auto* number = std::get_if<float>(&value.value)) return *number;
    return static_cast<float>(std::get<std::int64_t>(value.value));
  }
  ADD_FAILURE() << step.name << " tells no " << name;
  return 0.0F;
}

bool HasFlag(const Step& step, const std::string& name) {
  for (const NamedValue& value : step.values) {
    if (value.name == name) return true;
  }
  return false;
}

bool SameBits(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

bool TellsState(const Step& step, const EchoState& state) {
  return SameBits(NumberOf(step, "dist_raw"), state.dist_raw) &&
         SameBits(NumberOf(step, "refl_raw"), state.refl_raw) &&
         SameBits(NumberOf(step, "dist_proc"), state.dist_proc) &&
         SameBits(NumberOf(step, "refl_proc"), state.refl_proc) &&
         HasFlag(step, "ground") == state.ground && HasFlag(step, "bloom") == state.bloom &&
         HasFlag(step, "fill_point") == state.fill_point &&
         HasFlag(step, "shot_noise") == state.shot_noise;
}

const Step* StepAfter(const EchoStory& echo, const std::string& name) {
  for (const Step& step : echo.steps) {
    if (step.name == name) return &step;
  }
  return nullptr;
}

struct PointPlace {
  int row;
  int col;
  int slot;
  auto operator<=>(const PointPlace&) const = default;
};

// A point's bytes by place, as a replay of the stream publishes them: its packets hold 6 x 6
// pixels, column by column.
std::map<PointPlace, std::vector<int>> Replayed(const Stream& stream) {
  const testing::TempDir directory;
  simulator::CaptureWriter writer(directory.File("run.pcap"), {});
  for (const UdpPacket& packet : stream) writer.Write(1, {packet.buffer, 692});
  writer.Close();
  std::map<PointPlace, std::vector<int>> points;
  ::testing::internal::CaptureStdout();
  replay::Replay(directory.File("run.pcap"), CalibrationDir(), [&](const ReceivedPacket& packet) {
    for (int i = 0; i < 36; ++i) {
      const std::uint8_t* bytes = packet.bytes + 20 + 5 * i;
      points[{packet.bytes[207] * 6 + i % 6, packet.bytes[208] * 6 + i / 6,
              packet.bytes[12] == 2 ? 1 : 0}] = {bytes[0] | bytes[1] << 8, bytes[2], bytes[3],
                                                 bytes[4]};
    }
    return true;
  });
  ::testing::internal::GetCapturedStdout();
  return points;
}

void ExpectLastStepIs(const Step& step, const std::vector<int>& bytes) {
  ASSERT_EQ(step.name, "published");
  ASSERT_EQ(bytes.size(), 4U);
  const char* names[] = {"distance", "payload_0", "payload_1", "payload_2"};
  for (std::size_t i = 0; i < 4; ++i) {
    if (NumberOf(step, names[i]) != static_cast<float>(bytes[i])) {
      ADD_FAILURE() << names[i] << " is told as " << NumberOf(step, names[i]) << ", published "
                    << bytes[i];
    }
  }
}

// Every step against the state that was seen after its pass. Gives the number of steps.
int ExpectStatesAreTold(const PixelStory& story, const FrameStates& states) {
  int steps = 0;
  for (const EchoStory& echo : story.echoes) {
    const EchoRecord& record =
        states.At(story.row, story.col).echoes[static_cast<std::size_t>(echo.slot)];
    for (const RowPass pass : kRowPassOrder) {
      const Step* step = StepAfter(echo, std::string(RowPassName(pass)));
      if (step == nullptr) continue;
      ++steps;
      if (!step->sentences.empty() && TellsState(*step, record.states[MomentAfter(pass)])) continue;
      ADD_FAILURE() << step->name << " of pixel " << story.row << ',' << story.col << ", slot "
                    << echo.slot;
    }
  }
  return steps;
}

struct Told {
  int pixels = 0;
  int steps = 0;
};

// Calls with(story, states) for every pixel, the frame in bands of rows.
template <typename With>
void ForEveryPixel(const Stream& stream, const DefaultConfig& config, const With& with) {
  for (int row = 0; row < kRows; row += kRowStride) {
    StoryBook book({row, 0, row + kRowsAtATime - 1, kCols - 1}, config.echo_num);
    FrameStates states;
    RowStory rows(book);
    RunStory({.feed = FeedOf(stream), .cali_path = CalibrationDir(), .config = config, .frame = 0},
             {&states, &rows});
    for (const PixelStory& story : book.Stories()) {
      with(story, states);
      if (::testing::Test::HasFailure()) {
        FAIL() << "after pixel " << story.row << ',' << story.col;
      }
    }
  }
}

class EveryScene : public ::testing::TestWithParam<std::string> {};

TEST_P(EveryScene, EndsInThePublishedBytesAndTellsTheStateAfterEachPass) {
  const Stream stream = SimulatedFrames(GetParam(), 1, 17);
  const auto published = Replayed(stream);
  Told told;
  ForEveryPixel(
      stream, default_config::kConfig, [&](const PixelStory& story, const FrameStates& states) {
        ++told.pixels;
        told.steps += ExpectStatesAreTold(story, states);
        ExpectLastStepIs(story.echoes[0].steps.back(), published.at({story.row, story.col, 0}));
      });
  EXPECT_EQ(told.pixels, kRows / kRowStride * kRowsAtATime * kCols +
                             (kRows % kRowStride != 0 ? kRowsAtATime * kCols : 0));
  EXPECT_EQ(told.steps, told.pixels * 2 * 6) << "six passes over two slots";
}

INSTANTIATE_TEST_SUITE_P(Story, EveryScene, ::testing::ValuesIn(simulator::SceneNames()),
                         [](const auto& scene) { return scene.param; });

// The plane stage, the incidence scale, smoothing along the row, two packets a block and the
// payload of flags.
TEST(StoryOfOtherSettings, TellsTheStateAfterEachPassToo) {
  DefaultConfig config = default_config::kConfig;
  config.ground_plane_enable = true;
  config.ground_vert_seed_enable = true;
  config.ground_smooth_enable = true;
  config.echo_output_code = 12;
  config.output_mode = 12;
  Told told;
  int pulled = 0;
  int second_slots = 0;
  ForEveryPixel(SimulatedFrames("street", 1, 17), config,
                [&](const PixelStory& story, const FrameStates& states) {
                  ++told.pixels;
                  told.steps += ExpectStatesAreTold(story, states);
                  for (const std::string& sentence : story.echoes[0].steps[1].sentences) {
                    pulled += sentence.find("is drawn towards the plane") != std::string::npos;
                  }
                  const Step& last = story.echoes[1].steps.back();
                  const PublishedPoint& point = states.At(story.row, story.col).echoes[1].published;
                  ExpectLastStepIs(
                      last, {point.distance, point.payload[0], point.payload[1], point.payload[2]});
                  second_slots += point.distance != 0;
                });
  EXPECT_EQ(told.steps, told.pixels * 2 * 6);
  EXPECT_GT(pulled, 1000);
  EXPECT_GT(second_slots, 50);
}

// The names of a pixel's steps in slot 0 under these settings.
std::vector<std::string> StepsUnder(const DefaultConfig& config) {
  StoryBook book({50, 100, 50, 100}, config.echo_num);
  RowStory rows(book);
  RunStory({.feed = FeedOf(SimulatedFrames("retro", 1)),
            .cali_path = CalibrationDir(),
            .config = config,
            .frame = 0},
           {&rows});
  std::vector<std::string> names;
  for (const Step& step : book.Stories().at(0).echoes.at(0).steps) names.push_back(step.name);
  return names;
}

TEST(StoryOfOtherSettings, HasAStepForEachPassThatIsOn) {
  using Names = std::vector<std::string>;
  DefaultConfig one_echo = default_config::kConfig;
  one_echo.echo_num = 1;
  EXPECT_EQ(StepsUnder(one_echo),
            (Names{"prime", "ground", "neighbours", "shot_noise", "bloom", "published"}));
  DefaultConfig raw = default_config::kConfig;
  raw.calib_enable = false;
  EXPECT_EQ(StepsUnder(raw), (Names{"prime", "published"}));
  DefaultConfig traced = default_config::kConfig;
  traced.ground_enable = false;
  traced.shot_noise_enable = false;
  traced.blooming_filter_enable = false;
  traced.udp_output = true;
  traced.run_once = true;
  traced.debug.if_debug = true;
  traced.debug.packet_debug = true;
  traced.debug.row = 50;
  traced.debug.col = 100;
  EXPECT_EQ(StepsUnder(traced), (Names{"prime", "neighbours", "bloom", "order", "published"}));
}

}  // namespace
}  // namespace kerul::lidar::story
