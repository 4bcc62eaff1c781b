// Finds a frame in a capture by the sensor's number and the time, also while the capture grows.
#pragma once

#include <cstdint>
#include <string>

#include "pixel_story/capture_cut.h"
#include "pixel_story/frame_not_found.h"
#include "pixel_story/watched_node.h"

namespace kerul::lidar::story {

struct FrameSought {
  std::uint8_t frame_id = 0;  // numbers come again after 256 frames, so a time belongs to it
  TimeSpan published;         // time stamps of its first and last point packet
};

struct FoundFrame {
  DatagramFeed feed;  // from the frame before, if it is there
  int frame = 0;      // its number in the feed
};

// `path` is a capture or a folder of captures, as for CaptureCut. The clocks of capture and node
// may differ by half a second. While the frame is younger than a few seconds and not there to its
// end, it is waited for; a recorder writes late. Throws FrameNotFound.
FoundFrame FindFrame(const std::string& path, const FrameSought& sought);

}  // namespace kerul::lidar::story
