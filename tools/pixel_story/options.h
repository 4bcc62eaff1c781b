// The command line of pixel_story.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pixel_story/frame_search.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

struct StoryOptions {
  std::string capture;      // or
  std::uint16_t live = 0;   // a UDP port
  double timeout_s = 10.0;  // of live
  std::string calib_dir;
  int frame = 0;
  std::optional<FrameSought> sought;           // instead of `frame`; the capture may be a folder
  PixelRect wanted;                            // unless a point is given
  std::optional<std::array<double, 3>> point;  // metres, in the sensor's frame or the mounting's
  bool mount = false;                          // the point is in the frame of the mounting
  bool stories = true;
  bool fates = false;
  std::vector<std::string> settings;  // "name=value"
  std::string html;                   // files to write, empty for none
  std::string json;                   // "-" is standard output
  std::string picture;
  std::string packets;  // for the frame's point packets

  bool WritesText() const { return html.empty() && json.empty(); }
};

// Also lists the settings for --set help. False when the program is to end now, with `exit_status`.
bool ParseOptions(int argc, const char* const* argv, StoryOptions& options, int& exit_status);

}  // namespace kerul::lidar::story
