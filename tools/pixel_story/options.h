// The command line of pixel_story.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "pixel_story/frame_search.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

struct StoryOptions {
  std::string capture;
  std::string calib_dir;
  int frame = 0;
  std::optional<FrameSought> sought;           // instead of `frame`; the capture may be a folder
  PixelRect wanted;                            // unless a point is given
  std::optional<std::array<double, 3>> point;  // metres, in the sensor's frame or the mounting's
  std::string html;                            // a page to write, empty for none
  std::string packets;                         // a file for the frame's point packets, or empty
  bool mount = false;                          // the point is in the frame of the mounting
};

// False when the program is to end now, with `exit_status`.
bool ParseOptions(int argc, const char* const* argv, StoryOptions& options, int& exit_status);

}  // namespace kerul::lidar::story
