// Tells what the node did with a pixel of a captured frame, and why.
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kerul_lidar/directions.h"
#include "pixel_story/options.h"
#include "pixel_story/packet_story.h"
#include "pixel_story/pixel_of_point.h"
#include "pixel_story/row_story.h"
#include "pixel_story/story_html.h"
#include "pixel_story/story_run.h"
#include "pixel_story/story_text.h"
#include "standard_streams.h"
#include "support/output_file.h"

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

int WritePage(const story::StoryOptions& options, const std::vector<story::PixelStory>& stories) {
  std::ostringstream page;
  WriteHtml(page, stories,
            "Frame " + std::to_string(options.frame) + " of " + options.capture + ", calibration " +
                options.calib_dir);
  std::string error;
  if (WriteOutputFile(options.html, page.view(), error)) return 0;
  std::cerr << "pixel_story: " << options.html << ": " << error << std::endl;
  return 1;
}

int Tell(const story::StoryOptions& options) {
  const DefaultConfig& config = default_config::kConfig;
  story::StoryBook book(WantedPixels(options, config), config.echo_num);
  story::PacketStory packets(book);
  story::RowStory rows(book);
  story::RunStory({.feed = story::FeedOfCapture(options.capture),
                   .cali_path = options.calib_dir,
                   .config = config,
                   .frame = options.frame},
                  {&packets, &rows});
  if (!options.html.empty()) return WritePage(options, book.Stories());
  for (const story::PixelStory& told : book.Stories()) WriteText(std::cout, told);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  OpenMissingStandardStreams();
  story::StoryOptions options;
  int exit_status = 0;
  if (!story::ParseOptions(argc, argv, options, exit_status)) return exit_status;
  try {
    return Tell(options);
  } catch (const std::exception& error) {
    std::cerr << "pixel_story: " << error.what() << std::endl;
    return 1;
  }
}
