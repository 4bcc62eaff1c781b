// Tells a pixel's packet: its samples, what the parser computed from them, and the calibration.
#pragma once

#include <vector>

#include "pixel_story/packet_road.h"
#include "pixel_story/story_book.h"
#include "pixel_story/story_run.h"

namespace kerul::lidar::story {

// Walks each wanted pixel's packet by the telling forms. What they give must be what the node's
// parser and calibration gave: OnPacket throws std::runtime_error where it is not.
class PacketStory : public StoryWatcher {
 public:
  // The book must outlive it.
  explicit PacketStory(StoryBook& book) : book_(book) {}

  void Begin(const NodeParts& parts) override;
  void OnPacket(const PacketMoment& moment) override;

 private:
  StoryBook& book_;
  const NodeParts* parts_ = nullptr;
  CalibrationSteps steps_;
};

// The calibration's steps as they are run: none without calib_enable.
CalibrationSteps StepsInForce(const NodeParts& parts);

// The packet's steps of one echo slot, from the samples to the reflectivity.
std::vector<Step> PacketSteps(const PacketRoad& road, const CalibrationSteps& steps, int slot);

}  // namespace kerul::lidar::story
