// A pixel's story as plain data. Text, page and JSON only show what stands here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "MIPI_reader/parser/lidar_point.h"

namespace kerul::lidar::story {

// A number or text of a step. Floats are the node's own, bit for bit.
struct NamedValue {
  std::string name;  // for programs: lower case, words joined by _
  std::variant<std::int64_t, float, std::string> value;
  std::string unit;  // empty for none
};

// What a step can be drawn with, over a common horizontal axis.
struct Plot {
  struct Level {  // a horizontal line
    std::string name;
    float y = 0.0F;
  };
  struct Mark {  // a vertical line
    std::string name;
    float x = 0.0F;
  };
  struct Span {  // a width, drawn as a line from `from` to `to` at height `y`
    std::string name;
    float from = 0.0F;
    float to = 0.0F;
    float y = 0.0F;
  };
  std::string x_label;
  std::string y_label;
  float first_x = 0.0F;             // of bars[0]; the others follow at a distance of 1
  std::vector<float> bars;          // heights
  std::vector<std::size_t> marked;  // indices of the bars that stand out, for example clipped ones
  std::vector<Level> levels;
  std::vector<Mark> marks;
  std::vector<Span> spans;
};

// One step of the road. Its name never changes, whatever happened in it.
struct Step {
  std::string name;                    // for programs: "raw_range", "neighbours", "published"
  std::vector<std::string> sentences;  // whole ones: each decision with both of its sides
  std::vector<NamedValue> values;
  std::optional<Plot> plot;
  // What a comparison with another story says of the step; empty for none.
  std::string note = {};
};

// An echo slot's steps in the order of the road.
struct EchoStory {
  int slot = 0;
  std::vector<Step> steps;
};

struct PixelStory {
  int row = 0;
  int col = 0;
  std::vector<EchoStory> echoes;  // one for each slot in use, slot 0 first
};

// The pixels of a story; a rectangle when there are several.
struct PixelRect {
  int first_row = 0;
  int first_col = 0;
  int last_row = 0;  // included
  int last_col = 0;

  bool Contains(int row, int col) const noexcept {
    return row >= first_row && row <= last_row && col >= first_col && col <= last_col;
  }
};

}  // namespace kerul::lidar::story
