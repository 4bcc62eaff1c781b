// JSON read back by a reader that others wrote.
#include "pixel_story/story_json.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "story_fixture.h"
#include "support/child_process.h"

namespace kerul::lidar::story {
namespace {

// What the python program prints, with the JSON text in `text` and its value in `data`.
std::string Read(const std::string& json, const std::string& program) {
  const testing::TempDir directory;
  std::ofstream(directory.File("story.json")) << json;
  testing::ChildProcess python(
      {"/usr/bin/python3", "-c",
       "import json, struct\ntext = open('story.json', encoding='utf-8').read()\n"
       "data = json.loads(text)\n" +
           program},
      directory.path());
  EXPECT_EQ(python.WaitForExit(), 0) << python.Err();
  return python.Out();
}

std::string JsonOf(const std::vector<PixelStory>& stories) {
  std::ostringstream out;
  JsonWriter json(out);
  WriteJson(json, stories);
  return out.str();
}

PixelStory StoryOf(Step step) {
  return {.row = 7, .col = 9, .echoes = {{0, {std::move(step)}}, {1, {}}}};
}

// Ties, the largest and the smallest, a subnormal, whole numbers and a zero below zero.
std::vector<float> OddFloats() {
  using Limits = std::numeric_limits<float>;
  std::vector<float> floats{0.0F,
                            -0.0F,
                            1.0F,
                            -3.0F,
                            0.1F,
                            1.0F / 3.0F,
                            16777216.0F,
                            16777217.5F,
                            1e-10F,
                            1e10F,
                            3.4e38F,
                            Limits::max(),
                            Limits::min(),
                            Limits::denorm_min(),
                            Limits::lowest()};
  std::uint32_t bits = 1;
  for (int i = 0; i < 2000; ++i) {
    bits = bits * 1664525U + 1013904223U;
    const float number = std::bit_cast<float>(bits);
    if (number - number == 0.0F) floats.push_back(number);
  }
  return floats;
}

TEST(StoryJson, FloatsReadBackBitForBit) {
  Step step{.name = "ground", .sentences = {}, .values = {}, .plot = {}};
  std::string expected;
  for (const float number : OddFloats()) {
    step.values.push_back({"number", number, "m"});
    expected += std::to_string(std::bit_cast<std::uint32_t>(number)) + '\n';
  }
  EXPECT_EQ(Read(JsonOf({StoryOf(step)}),
                 "for value in data[0]['echoes'][0]['steps'][0]['values']:\n"
                 "  assert type(value['value']) is float and value['type'] == 'float'\n"
                 "  print(struct.unpack('<I', struct.pack('<f', value['value']))[0])\n"),
            expected);
}

TEST(StoryJson, WhatIsNoNumberIsAText) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Step step{.name = "ground",
                  .sentences = {},
                  .values = {{"a", nan, ""}, {"b", inf, ""}, {"c", -inf, ""}, {"d", -nan, ""}},
                  .plot = {}};
  EXPECT_EQ(Read(JsonOf({StoryOf(step)}),
                 "for value in data[0]['echoes'][0]['steps'][0]['values']:\n"
                 "  print(value['name'], value['type'], repr(value['value']))\n"),
            "a float 'nan'\nb float 'inf'\nc float '-inf'\nd float 'nan'\n");
}

TEST(StoryJson, HoldsAllOfAStory) {
  Plot plot;
  plot.x_label = "sample";
  plot.y_label = "counts";
  plot.first_x = 0.5F;
  plot.bars = {1.0F, 4.0F};
  plot.marked = {1};
  plot.levels = {{"baseline", 1.5F}};
  plot.marks = {{"centre", 0.75F}};
  plot.spans = {{"width", 0.25F, 1.25F, 2.0F}};
  const Step step{.name = "samples",
                  .sentences = {"7 < 8 & \"so\" \\ on\n", "\u00b5 \x01"},
                  .values = {{"count", std::int64_t{-9007199254740993}, ""}, {"from", "A\tB", "m"}},
                  .plot = plot,
                  .note = "differs"};
  EXPECT_EQ(
      Read(JsonOf({StoryOf(step)}), "print(json.dumps(data, sort_keys=True))"),
      "[{\"col\": 9, \"echoes\": [{\"slot\": 0, \"steps\": [{\"name\": \"samples\", \"note\": "
      "\"differs\", \"plot\": {\"bars\": [1.0, 4.0], \"first_x\": 0.5, \"levels\": [{\"name\": "
      "\"baseline\", \"y\": 1.5}], \"marked\": [1], \"marks\": [{\"name\": \"centre\", \"x\": "
      "0.75}], \"spans\": [{\"from\": 0.25, \"name\": \"width\", \"to\": 1.25, \"y\": 2.0}], "
      "\"x_label\": \"sample\", \"y_label\": \"counts\"}, \"sentences\": [\"7 < 8 & \\\"so\\\" "
      "\\\\ on\\n\", \"\\u00b5 \\u0001\"], \"values\": [{\"name\": \"count\", \"type\": "
      "\"integer\", \"unit\": \"\", \"value\": -9007199254740993}, {\"name\": \"from\", "
      "\"type\": \"text\", \"unit\": \"m\", \"value\": \"A\\tB\"}]}]}, {\"slot\": 1, \"steps\": "
      "[]}], \"row\": 7}]\n");
}

TEST(StoryJson, GivesTheFateOfEachEchoOfTheRectangle) {
  FrameStates states;
  RunStory(SourceOf(SimulatedFrames("street", 1, 17), 0), {&states});
  const PixelRect rect{96, 140, 99, 149};
  std::ostringstream out;
  JsonWriter json(out);
  WriteJson(json, CountFates(states, rect), states);
  std::string expected;
  for (int slot = 0; slot < 2; ++slot) {
    for (int row = 96; row <= 99; ++row) {
      for (int col = 140; col <= 149; ++col) {
        expected += std::string(NameOf(FateOf(states, row, col, slot))) + '\n';
      }
    }
  }
  EXPECT_EQ(Read(out.str(),
                 "assert data['rect'] == [96, 140, 99, 149] and data['echoes'] == 80\n"
                 "counts = {}\n"
                 "for slot, rows in enumerate(data['grid']):\n"
                 "  for row in rows:\n"
                 "    for fate in row:\n"
                 "      name = data['fates'][fate]['name']\n"
                 "      counts[name, slot] = counts.get((name, slot), 0) + 1\n"
                 "      print(name)\n"
                 "for fate in data['fates']:\n"
                 "  for slot in (0, 1):\n"
                 "    assert fate['echoes'][slot] == counts.get((fate['name'], slot), 0)\n"),
            expected);
}

TEST(StoryJson, NamesTheMovesBetweenFates) {
  FateChanges changes{.matrix = {}, .changed = 5, .other_bytes = 2, .echoes = 20};
  changes.matrix[0][0] = 13;
  changes.matrix[static_cast<std::size_t>(Fate::kIsolated)][0] = 5;
  std::ostringstream out;
  JsonWriter json(out);
  WriteJson(json, changes);
  EXPECT_EQ(Read(out.str(), "print(data)"),
            "{'echoes': 20, 'changed': 5, 'other_bytes': 2, 'moves': [{'before': 'isolated', "
            "'after': 'published', 'echoes': 5}]}\n");
}

}  // namespace
}  // namespace kerul::lidar::story
