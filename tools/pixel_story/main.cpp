// Tells what the node did with a pixel of a captured frame, and why.
#include <atomic>
#include <csignal>
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
#include "pixel_story/frame_search.h"
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

// As main's. A program that waits for the story may know how to go on without the frame.
constexpr int kFrameNotFound = 2;

std::atomic<bool> interrupted{false};

// From here on an interrupt ends the stream, so that no ring is left behind.
story::DatagramFeed Interruptible(story::DatagramFeed feed) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(signal, [](int /*signal*/) { interrupted = true; });
  }
  return [feed = std::move(feed)](UdpPacket& packet) {
    if (interrupted) throw std::runtime_error("interrupted");
    return feed(packet);
  };
}

// Gives the stream anew with each call, and the frame's number in it.
using FrameOpener = std::function<story::FoundFrame()>;

FrameOpener OpenStream(const story::StoryOptions& options) {
  if (options.sought) return [&] { return story::FindFrame(options.capture, *options.sought); };
  if (options.live == 0) {
    return [&] { return story::FoundFrame{story::FeedOfCapture(options.capture), options.frame}; };
  }
  const auto tell = [](const std::string& line) {
    std::cerr << "pixel_story: " << line << std::endl;
  };
  auto packets = story::CatchFrame(options.live, options.timeout_s, tell);
  return [packets = std::move(packets), frame = options.frame] {
    return story::FoundFrame{story::FeedOfPackets(packets), frame};
  };
}

// What a frame's number belongs to.
std::string Origin(const story::StoryOptions& options) {
  if (options.live != 0) return "UDP port " + std::to_string(options.live);
  return options.capture + (options.sought ? " by the sensor's count" : "");
}

story::Report MakeReport(const story::StoryOptions& options) {
  const DefaultConfig& config = default_config::kConfig;
  DefaultConfig changed = config;
  for (const std::string& setting : options.settings) story::ApplySetting(setting, changed);
  story::Report report{.origin = Origin(options),
                       .calib_dir = options.calib_dir,
                       .frame = options.sought ? options.sought->frame_id : options.frame,
                       .wish = {.wanted = WantedPixels(options, config),
                                .stories = options.stories,
                                .fates = options.fates},
                       .configured = {},
                       .settings = options.settings,
                       .changed = {}};
  const FrameOpener open = OpenStream(options);
  const auto tell = [&](const DefaultConfig& with) {
    // The changes are counted over the whole frame.
    story::AccountWish wish = report.wish;
    wish.fates = wish.fates || !report.settings.empty();
    story::FoundFrame found = open();
    return story::TellFrame({.feed = Interruptible(std::move(found.feed)),
                             .cali_path = options.calib_dir,
                             .config = with,
                             .frame = found.frame},
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
  if (!options.packets.empty()) {
    std::string error;
    if (!WriteOutputFile(options.packets, report.configured.published.Bytes(), error)) {
      throw std::runtime_error(options.packets + ": " + error);
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
  } catch (const story::FrameNotFound& error) {
    std::cerr << "pixel_story: " << error.what() << std::endl;
    return kFrameNotFound;
  } catch (const std::exception& error) {
    std::cerr << "pixel_story: " << error.what() << std::endl;
    return 1;
  }
}
