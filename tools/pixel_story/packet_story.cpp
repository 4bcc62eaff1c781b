#include "pixel_story/packet_story.h"

#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "MIPI_reader/parser/packet_context.h"
#include "pixel_story/calibration_steps.h"
#include "pixel_story/echo_steps.h"

namespace kerul::lidar::story {

CalibrationSteps StepsInForce(const NodeParts& parts) {
  return parts.config.calib_enable ? parts.calibration : CalibrationSteps{};
}

std::vector<Step> PacketSteps(const PacketRoad& road, const CalibrationSteps& steps, int slot) {
  std::vector<Step> told = EchoSteps(road, slot);
  std::vector<Step> calibration = CalibrationStepsOf(road, steps, slot);
  told.insert(told.end(), std::move_iterator(calibration.begin()),
              std::move_iterator(calibration.end()));
  return told;
}

void PacketStory::Begin(const NodeParts& parts) {
  parts_ = &parts;
  steps_ = StepsInForce(parts);
}

void PacketStory::OnPacket(const PacketMoment& moment) {
  const PacketContext context =
      ContextOf(parts_->parser, ReadRawHeader(moment.packet.buffer), parts_->config.echo_num);
  for (std::size_t block = 0; block < moment.calibrated.size(); ++block) {
    const LidarPoint& point = moment.calibrated[block];
    if (!book_.Wants(point.row, point.col)) continue;
    const PacketRoad road =
        WalkPacketRoad(context, moment.packet.buffer, static_cast<int>(block), steps_);
    if (!SameRecord(road.decoded, moment.parsed[block]) || !SameRecord(road.calibrated, point)) {
      throw std::runtime_error("pixel " + std::to_string(point.row) + "," +
                               std::to_string(point.col) +
                               ": the story of its packet is not what the node computed");
    }
    book_.BeginPacket(point.row, point.col);
    for (int slot = 0; slot < book_.Slots(); ++slot) {
      for (Step& step : PacketSteps(road, steps_, slot)) {
        book_.AddPacketStep(point.row, point.col, slot, std::move(step));
      }
    }
  }
}

}  // namespace kerul::lidar::story
