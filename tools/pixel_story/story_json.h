// Stories and fates as JSON for programs: the format stands in docs/formats.md.
#pragma once

#include <vector>

#include "pixel_story/comparison.h"
#include "pixel_story/fates.h"
#include "pixel_story/json_writer.h"
#include "pixel_story/story.h"

namespace kerul::lidar::story {

void WriteJson(JsonWriter& json, const std::vector<PixelStory>& stories);

// The table, and the fate of each echo of its rectangle.
void WriteJson(JsonWriter& json, const FateTable& table, const FrameStates& states);

void WriteJson(JsonWriter& json, const FateChanges& changes);

}  // namespace kerul::lidar::story
