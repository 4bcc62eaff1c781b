#include "pixel_story/options.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "support/number_options.h"

namespace kerul::lidar::story {
namespace {

constexpr int kRows = 216;
constexpr int kCols = 288;

// Rows and columns in turn, the first two are the rectangle's first corner.
bool TakeCorners(const std::vector<int>& numbers, PixelRect& rect, std::string& error) {
  rect = {numbers[0], numbers[1], numbers[numbers.size() - 2], numbers[numbers.size() - 1]};
  if (rect.first_row > rect.last_row || rect.first_col > rect.last_col) {
    error = "the rectangle's second corner lies before its first one";
  } else if (rect.last_row >= kRows || rect.last_col >= kCols) {
    error = "a pixel's row is 0 to 215, its column 0 to 287";
  }
  return error.empty();
}

// A frame by its number and time instead of its place.
void AddSearchOptions(CLI::App& app, CLI::Option* frame, std::optional<std::uint8_t>& frame_id,
                      std::vector<double>& time) {
  constexpr double kLatestS = 4e9;  // what a capture's stamps can tell
  CLI::Option* by_time =
      app.add_option("--time", time, "FIRST,LAST: when the frame was published, seconds since 1970")
          ->delimiter(',')
          ->expected(2)
          ->check(FiniteNumber(0, kLatestS));
  CLI::Option* by_id =
      app.add_option("--frame-id", frame_id,
                     "The sensor's number of the frame, with --time; the capture may then be a "
                     "folder of captures, and still grow")
          ->check(WholeNumber(0, 255))
          ->excludes(frame)
          ->needs(by_time);
  by_time->needs(by_id);
}

TimeSpan PublishedBetween(const std::vector<double>& seconds) {
  constexpr double kLongestFrameS = 10.0;
  if (seconds[1] < seconds[0] || seconds[1] > seconds[0] + kLongestFrameS) {
    throw CLI::ValidationError("--time: LAST is up to 10 s after FIRST");
  }
  return {static_cast<std::int64_t>(seconds[0] * 1e6), static_cast<std::int64_t>(seconds[1] * 1e6)};
}

}  // namespace

bool ParseOptions(int argc, const char* const* argv, StoryOptions& options, int& exit_status) {
  CLI::App app{
      "Tells the story of a pixel: what the node did with each of its echoes, step by step, from "
      "the "
      "samples to the published bytes"};
  std::vector<int> pixel;
  std::vector<int> rect;
  std::vector<double> point;
  bool all = false;
  app.add_option("capture", options.capture,
                 "Capture file, as sensor_simulator and tcpdump write it")
      ->required();
  app.add_option("--calib", options.calib_dir, "The sensor's calibration, as for lidar_node")
      ->required();
  CLI::Option* frame =
      app.add_option("--frame", options.frame, "Frame of the capture, the first is 0 (default 0)")
          ->check(WholeNumberOf(options.frame));
  std::optional<std::uint8_t> frame_id;
  std::vector<double> time;
  AddSearchOptions(app, frame, frame_id, time);
  CLI::Option_group* which = app.add_option_group("which", "Which pixels (one of these)");
  which->require_option(1);
  const auto number = WholeNumberOf(int{});
  which->add_option("--pixel", pixel, "ROW,COL")->delimiter(',')->expected(2)->check(number);
  which->add_option("--rect", rect, "ROW0,COL0,ROW1,COL1: both corners included")
      ->delimiter(',')
      ->expected(4)
      ->check(number);
  which->add_option("--point", point, "X,Y,Z in metres: the pixel that looks there")
      ->delimiter(',')
      ->expected(3)
      ->check(FiniteNumber(-1e6, 1e6));
  which->add_flag("--all", all, "The whole frame");
  app.add_option("--html", options.html, "Write the stories as a page instead of text");
  app.add_option("--packets", options.packets,
                 "Write the frame's point packets as they were published, one after the other");
  app.add_flag("--mount", options.mount, "The point is in the frame of the configured mounting");
  std::string error;
  try {
    app.parse(argc, argv);
    if (!point.empty()) options.point = {point[0], point[1], point[2]};
    if (frame_id) options.sought = {.frame_id = *frame_id, .published = PublishedBetween(time)};
    if (all) rect = {0, 0, kRows - 1, kCols - 1};
    const std::vector<int>& corners = rect.empty() ? pixel : rect;
    if (!corners.empty() && !TakeCorners(corners, options.wanted, error)) {
      throw CLI::ValidationError(error);
    }
  } catch (const CLI::ParseError& problem) {
    exit_status = app.exit(problem) == 0 ? 0 : 1;
    return false;
  }
  return true;
}

}  // namespace kerul::lidar::story
