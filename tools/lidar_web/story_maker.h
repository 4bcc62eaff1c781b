// The story of a pixel of a frame that a page shows, by pixel_story out of a capture that is being
// kept.
#pragma once

#include <functional>
#include <string>

#include "lidar_web/file_maker.h"

namespace kerul::lidar::web {

struct StorySource {
  std::string program;    // pixel_story
  std::string captures;   // folder of captures of the stream, or one of them
  std::string calib_dir;  // that the node runs with
};

// Where stories wait at most, all clients together; one is told at a time.
inline constexpr std::size_t kMostStoryJobs = 4;
inline constexpr int kLongestStorySeconds = 10;

// Tells the story of the job's pixel in the job's frame. It is this frame's when the points that
// pixel_story's node publishes are those of the message: where that frame is complete all of them,
// otherwise all its returns, and in any case those of the pixel. Otherwise job.error is a sentence
// for the page that names no file. `log` gets what is for whoever runs the server.
void MakeStory(const StorySource& source, FileJob& job, const std::function<bool()>& wanted,
               const std::function<void(const std::string& line)>& log);

}  // namespace kerul::lidar::web
