// Tells what the node did with a pixel of a captured frame, and why.
#include <exception>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kerul_lidar/directions.h"
#include "pixel_story/comparison.h"
#include "pixel_story/live_frame.h"
#include "pixel_story/options.h"
#include "pixel_story/pixel_of_point.h"
#include "pixel_story/report.h"
#include "pixel_story/settings.h"
#include "standard_streams.h"
#include "support/output_file.h"
#include "support/png_file.h"

namespace {

using namespace kerul::lidar;

story::PixelRect WantedPixels(const story::StoryOptions& options, const DefaultConfig& config) {
  if (!options.point) return options.wanted;
  Directions directions;
  std::string error;
  if (!LoadDirections(options.calib_dir, directions, error)) throw std::runtime_error(error);
  const auto pixel =
      story::PixelOfPoint(directions, *options.point, options.mount ? &config.transform : nullptr);
  return {pixel.row, pixel.col, pixel.row, pixel.col};
}

// Gives the stream anew with each call.
using FeedMaker = std::function<story::DatagramFeed()>;

FeedMaker OpenStream(const story::StoryOptions& options) {
  if (options.live == 0) return [&options] { return story::FeedOfCapture(options.capture); };
  const auto tell = [](const std::string& line) {
    std::cerr << "pixel_story: " << line << std::endl;
  };
  auto packets = story::CatchFrame(options.live, options.timeout_s, tell);
  return [packets = std::move(packets)] { return story::FeedOfPackets(packets); };
}

story::Report MakeReport(const story::StoryOptions& options) {
  const DefaultConfig& config = default_config::kConfig;
  DefaultConfig changed = config;
  for (const std::string& setting : options.settings) story::ApplySetting(setting, changed);
  story::Report report{
      .origin = options.live == 0 ? options.capture : "UDP port " + std::to_string(options.live),
      .calib_dir = options.calib_dir,
      .frame = options.frame,
      .wish = {.wanted = WantedPixels(options, config),
               .stories = options.stories,
               .fates = options.fates},
      .configured = {},
      .settings = options.settings,
      .changed = {}};
  const FeedMaker open = OpenStream(options);
  const auto tell = [&](const DefaultConfig& with) {
    // The changes are counted over the whole frame.
    story::AccountWish wish = report.wish;
    wish.fates = wish.fates || !report.settings.empty();
    return story::TellFrame(
        {.feed = open(), .cali_path = options.calib_dir, .config = with, .frame = options.frame},
        wish);
  };
  report.configured = tell(config);
  if (options.settings.empty()) return report;
  report.changed = tell(changed);
  story::NoteDifferences(report.configured.stories, report.changed->stories);
  return report;
}

using Writer = void (*)(std::ostream& out, const story::Report& report);

void WriteFile(const std::string& path, Writer write, const story::Report& report) {
  std::ostringstream text;
  write(text, report);
  std::string error;
  if (!WriteOutputFile(path, text.view(), error)) throw std::runtime_error(path + ": " + error);
}

void WriteAll(const story::StoryOptions& options, const story::Report& report) {
  if (!options.picture.empty()) {
    const story::FatePicture picture = DrawReport(report);
    std::string error;
    if (!WritePng(options.picture, picture.width, picture.height, picture.rgb, error)) {
      throw std::runtime_error(options.picture + ": " + error);
    }
  }
  if (!options.html.empty()) WriteFile(options.html, story::WriteReportAsPage, report);
  if (options.json == "-") {
    story::WriteReportAsJson(std::cout, report);
  } else if (!options.json.empty()) {
    WriteFile(options.json, story::WriteReportAsJson, report);
  }
  if (options.WritesText()) story::WriteReportAsText(std::cout, report);
}

}  // namespace

int main(int argc, char** argv) {
  OpenMissingStandardStreams();
  story::StoryOptions options;
  int exit_status = 0;
  if (!story::ParseOptions(argc, argv, options, exit_status)) return exit_status;
  try {
    WriteAll(options, MakeReport(options));
    if (!std::cout.flush()) throw std::runtime_error("standard output cannot be written");
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "pixel_story: " << error.what() << std::endl;
    return 1;
  }
}
