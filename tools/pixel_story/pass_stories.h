// One function for each row pass: runs the pass's telling form over `frame`, which holds the rows
// in sight as the pass found them, and writes each decision about a wanted pixel as a sentence.
#pragma once

#include "pixel_story/pass_sheet.h"

namespace kerul::lidar::story {

void TellPriming(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet);
void TellGround(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet);
void TellNeighbours(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet);
void TellShotNoise(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet);
void TellBloom(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet);
void TellOrder(LidarFrame& frame, const PassMoment& moment, PassSheet& sheet);

}  // namespace kerul::lidar::story
