// Where a program's frames come from, and how its user says so.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "kerul_lidar/frame_stream.h"
#include "kerul_lidar/transform_param.h"

namespace CLI {
class App;
}

namespace kerul::lidar::ros {

struct StreamOptions {
  std::string shm_name;         // empty: the default ring
  int udp_port = 0;             // 0: the ring
  std::string multicast_group;  // empty: none
  std::string calib_dir;        // empty: the simulated sensor's camera
  std::optional<TransformParam> mount;
};

// Adds --shm, --udp, --group, --calib and --mount. `options` must outlive the parsing.
void AddStreamOptions(CLI::App& app, StreamOptions& options);

// A stream whose frames have x, y and z. Null with the reason in `error`. `start` is for a ring.
std::unique_ptr<FrameStream> OpenStream(const StreamOptions& options, RingStart start,
                                        std::string& error);

}  // namespace kerul::lidar::ros
