#include "pixel_story/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <vector>

#include "pixel_story/settings.h"
#include "support/number_options.h"

namespace kerul::lidar::story {
namespace {

constexpr int kRows = 216;
constexpr int kCols = 288;
constexpr double kLongestWaitS = 3600.0;

// Which pixels, as they are given.
struct Place {
  std::vector<int> pixel;
  std::vector<int> rect;
  std::vector<double> point;
  bool all = false;
};

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

void AddSource(CLI::App& app, StoryOptions& options, std::optional<std::uint8_t>& frame_id,
               std::vector<double>& time) {
  app.add_option("capture", options.capture,
                 "Capture file, as sensor_simulator and tcpdump write it");
  app.add_option("--live", options.live,
                 "In the capture's place: a UDP port at which a copy of the stream arrives")
      ->check(WholeNumberOf(options.live, 1));
  app.add_option("--timeout", options.timeout_s, "Longest wait for a live frame, s (default 10)")
      ->check(FiniteNumber(0.0, kLongestWaitS));
  app.add_option("--calib", options.calib_dir, "The sensor's calibration, as for lidar_node")
      ->required();
  CLI::Option* frame =
      app.add_option("--frame", options.frame, "Frame of the capture, the first is 0 (default 0)")
          ->check(WholeNumberOf(options.frame));
  AddSearchOptions(app, frame, frame_id, time);
}

void AddPlace(CLI::App& app, Place& place, bool& mount) {
  CLI::Option_group* which = app.add_option_group("which", "Which pixels (one of these)");
  which->require_option(1);
  const auto number = WholeNumberOf(int{});
  which->add_option("--pixel", place.pixel, "ROW,COL")->delimiter(',')->expected(2)->check(number);
  which->add_option("--rect", place.rect, "ROW0,COL0,ROW1,COL1: both corners included")
      ->delimiter(',')
      ->expected(4)
      ->check(number);
  which->add_option("--point", place.point, "X,Y,Z in metres: the pixel that looks there")
      ->delimiter(',')
      ->expected(3)
      ->check(FiniteNumber(-1e6, 1e6));
  which->add_flag("--all", place.all, "The whole frame, without stories");
  app.add_flag("--mount", mount, "The point is in the frame of the configured mounting");
}

void AddForms(CLI::App& app, StoryOptions& options, bool& fates_only) {
  app.add_flag("--fates", fates_only, "Only the table of fates, no stories");
  app.add_option("--set", options.settings,
                 "NAME=VALUE: also tell the frame under this setting (repeatable; \"--set help\" "
                 "lists them)")
      ->allow_extra_args(false);
  app.add_option("--html", options.html, "Write a page instead of text");
  app.add_option("--json", options.json, "Write JSON instead of text, - for standard output");
  app.add_option("--packets", options.packets,
                 "Write the frame's point packets as they were published, one after the other");
  app.add_option("--picture", options.picture, "Also write the fates as a picture (PNG)");
}

std::string TakePlace(const Place& place, bool fates_only, StoryOptions& options) {
  if (!place.point.empty()) options.point = {place.point[0], place.point[1], place.point[2]};
  std::vector<int> corners = place.rect.empty() ? place.pixel : place.rect;
  if (place.all) corners = {0, 0, kRows - 1, kCols - 1};
  std::string error;
  if (!corners.empty()) TakeCorners(corners, options.wanted, error);
  options.stories = !place.all && !fates_only;
  options.fates = place.all || fates_only || !place.rect.empty() || !options.picture.empty();
  return error;
}

std::string CheckSource(const StoryOptions& options) {
  if (options.capture.empty() == (options.live == 0)) {
    return options.live == 0 ? "a capture file or --live is needed"
                             : "a capture file and --live exclude each other";
  }
  const bool names_frame = options.frame != 0 || options.sought;
  return options.live != 0 && names_frame ? "--frame is for captures" : "";
}

}  // namespace

bool ParseOptions(int argc, const char* const* argv, StoryOptions& options, int& exit_status) {
  CLI::App app{
      "Tells the story of a pixel: what the node did with each of its echoes, step by step, from "
      "the samples to the published bytes"};
  Place place;
  bool fates_only = false;
  std::optional<std::uint8_t> frame_id;
  std::vector<double> time;
  AddSource(app, options, frame_id, time);
  AddPlace(app, place, options.mount);
  AddForms(app, options, fates_only);
  // Before what else is missing is complained about.
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) != "--set" || std::string(argv[i + 1]) != "help") continue;
    WriteSettings(std::cout, default_config::kConfig);
    exit_status = 0;
    return false;
  }
  try {
    app.parse(argc, argv);
    if (frame_id) options.sought = {.frame_id = *frame_id, .published = PublishedBetween(time)};
    std::string error = TakePlace(place, fates_only, options);
    if (error.empty()) error = CheckSource(options);
    if (!error.empty()) throw CLI::ValidationError(error);
  } catch (const CLI::ParseError& problem) {
    exit_status = app.exit(problem) == 0 ? 0 : 1;
    return false;
  }
  return true;
}

}  // namespace kerul::lidar::story
