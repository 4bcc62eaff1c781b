// The program as a whole: its options and its run.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "lidar_web/stream_reader.h"

namespace kerul::lidar::web {

struct WebOptions {
  StreamSource source;
  std::string bind = "127.0.0.1";
  int port = 8710;  // 0 takes a free one
  std::vector<std::string> allowed_hosts;
  std::string calib_dir;  // empty: the default camera model
  bool mount = false;
  std::string page;            // folder; empty: where the program finds it
  std::string node_log;        // path, "-" for standard input; empty: none
  int node_port = 2368;        // that the node receives raw packets on
  std::string story_captures;  // where a capture of the raw packets is kept; empty: no stories
  std::string story_calib;     // that the node runs with; empty: as calib_dir
  std::string story_program;   // pixel_story; empty: the one beside the program
};

// Fills in the options. False when the program is to end now with `exit_status`: 0 after --help,
// 1 after an error, both already printed.
bool ParseOptions(int argc, const char* const* argv, WebOptions& options, int& exit_status);

// Serves until `stop`. Prints the address to `out` as soon as it can be asked, and failures to
// `err`. Gives the exit status.
int RunWebServer(const WebOptions& options, const std::string& program,
                 const std::atomic<bool>& stop, std::ostream& out, std::ostream& err);

}  // namespace kerul::lidar::web
