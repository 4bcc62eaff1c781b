// The viewer as a whole: its options and its run.
#pragma once

#include <atomic>
#include <iosfwd>
#include <string>

#include "lidar_view/frame_output.h"
#include "lidar_view/stream_viewer.h"

namespace kerul::lidar::view {

struct ViewerOptions {
  std::string shm_name;         // empty: the default ring
  int udp_port = 0;             // 0: the ring
  std::string multicast_group;  // empty: none
  ViewLimits limits;
  FrameFiles files;
  std::string summary;    // path; empty: none
  std::string calib_dir;  // empty: the default camera model
  bool mount = false;
  PictureOptions picture;
};

// Fills in the options. False when the program is to end now with `exit_status`: 0 after --help,
// 1 after an error, both already printed.
bool ParseOptions(int argc, const char* const* argv, ViewerOptions& options, int& exit_status);

// Runs until a limit is reached or `stop` is set, then writes the files. Status lines go to `out`,
// one over the other if `overwrite_status`, failures to `err`. Gives the exit status: 0 when at
// least one complete frame came and everything was written, else 1.
int RunViewer(const ViewerOptions& options, const std::atomic<bool>& stop, bool overwrite_status,
              std::ostream& out, std::ostream& err);

}  // namespace kerul::lidar::view
