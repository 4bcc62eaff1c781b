// Plays a stream through the real node and beside it through its twin, and hands out what happens
// to one frame, step by step. Every row that the node publishes is held against the twin's.
#pragma once

#include <string>
#include <vector>

#include "config/default_config.h"
#include "pixel_story/frame_twin.h"
#include "pixel_story/watched_node.h"

namespace kerul::lidar::story {

// A miniflash row on its way out: the packets as they stood in the ring.
struct RowMoment {
  int m_row;
  const LidarFrame& frame;
  const RowPassSettings& settings;
};

// Told what happens to the frame wanted, in the order in which it happens. A pixel's packet may
// come more than once, and a row may run more than once: what came last holds. A row that ran takes
// the packets up to then.
class StoryWatcher {
 public:
  virtual ~StoryWatcher() = default;
  // Before all else. The parts live until the end of the run.
  virtual void Begin(const NodeParts& /*parts*/) {}
  virtual void OnPacket(const PacketMoment& /*moment*/) {}
  virtual void OnRowBegins(const RowMoment& /*moment*/) {}  // before the first pass
  virtual void OnPass(const PassMoment& /*moment*/) {}
  // `packets`: from the node's ring, in its order; one or two for each block of the row.
  virtual void OnRowPublished(const RowMoment& /*moment*/,
                              const std::vector<ReceivedPacket>& /*packets*/) {}
};

struct StorySource {
  DatagramFeed feed;
  std::string cali_path;  // as for the node's --cali_path
  DefaultConfig config;   // as the node would run with; source and output are replaced
  int frame = 0;          // of the stream, the first is 0
};

struct StoryEnd {
  int packets = 0;           // of the frame that the node took
  int published_rows = 0;    // miniflash rows; a row that ran twice counts twice
  int published_frame = -1;  // the number under which it went out, 0..255; -1 none
};

// Runs to the end of the frame wanted. Throws std::runtime_error when the node does not start, when
// the stream has no such frame, or when a row of the twin is not byte for byte what the node
// published: then its stories would not be true.
StoryEnd RunStory(StorySource source, const std::vector<StoryWatcher*>& watchers);

}  // namespace kerul::lidar::story
