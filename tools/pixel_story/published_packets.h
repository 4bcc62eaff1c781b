// Keeps the point packets of the frame wanted.
#pragma once

#include <span>
#include <vector>

#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

class PublishedPackets : public StoryWatcher {
 public:
  void OnRowPublished(const RowMoment& /*moment*/,
                      const std::vector<ReceivedPacket>& packets) override {
    for (const ReceivedPacket& packet : packets) {
      bytes_.insert(bytes_.end(), packet.bytes, packet.bytes + packet.length);
    }
  }

  // One after the other, each as long as a point packet, in the order in which they went out.
  std::span<const char> Bytes() const noexcept { return bytes_; }

 private:
  std::vector<char> bytes_;
};

}  // namespace kerul::lidar::story
