// Tells what the node did with a pixel of a captured frame, and why.
#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kerul_lidar/directions.h"
#include "pixel_story/frame_search.h"
#include "pixel_story/options.h"
#include "pixel_story/packet_story.h"
#include "pixel_story/pixel_of_point.h"
#include "pixel_story/published_packets.h"
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

// As main's. A program that waits for the story may know how to go on without the frame.
constexpr int kFrameNotFound = 2;

std::atomic<bool> interrupted{false};

bool WriteFile(const std::string& path, std::span<const char> bytes) {
  std::string error;
  if (WriteOutputFile(path, bytes, error)) return true;
  std::cerr << "pixel_story: " << path << ": " << error << std::endl;
  return false;
}

std::string FrameName(const story::StoryOptions& options) {
  if (!options.sought) return std::to_string(options.frame);
  return "with the sensor's number " + std::to_string(options.sought->frame_id);
}

// What the frame is read from. It ends early on an interrupt, so that nothing is left behind.
story::FoundFrame OpenFrame(const story::StoryOptions& options) {
  story::FoundFrame found =
      options.sought ? story::FindFrame(options.capture, *options.sought)
                     : story::FoundFrame{story::FeedOfCapture(options.capture), options.frame};
  found.feed = [feed = std::move(found.feed)](UdpPacket& packet) {
    if (interrupted) throw std::runtime_error("interrupted");
    return feed(packet);
  };
  return found;
}

int WritePage(const story::StoryOptions& options, const std::vector<story::PixelStory>& stories) {
  std::ostringstream page;
  WriteHtml(page, stories,
            "Frame " + FrameName(options) + " of " + options.capture + ", calibration " +
                options.calib_dir);
  return WriteFile(options.html, page.view()) ? 0 : 1;
}

int Tell(const story::StoryOptions& options) {
  const DefaultConfig& config = default_config::kConfig;
  story::StoryBook book(WantedPixels(options, config), config.echo_num);
  story::PacketStory packets(book);
  story::RowStory rows(book);
  story::PublishedPackets published;
  story::FoundFrame found = OpenFrame(options);
  story::RunStory({.feed = std::move(found.feed),
                   .cali_path = options.calib_dir,
                   .config = config,
                   .frame = found.frame},
                  {&packets, &rows, &published});
  if (!options.packets.empty() && !WriteFile(options.packets, published.Bytes())) return 1;
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
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(signal, [](int /*signal*/) { interrupted = true; });
  }
  try {
    return Tell(options);
  } catch (const story::FrameNotFound& error) {
    std::cerr << "pixel_story: " << error.what() << std::endl;
    return kFrameNotFound;
  } catch (const std::exception& error) {
    std::cerr << "pixel_story: " << error.what() << std::endl;
    return 1;
  }
}
