// What the recorder says of its work.
#pragma once

#include <string>

#include "kerul_lidar/frame_stream.h"
#include "lidar_record/frame_intake.h"
#include "lidar_record/recorder.h"

namespace kerul::lidar::record {

// One line, for example
//   frames 120  left out 0  incomplete 0  missing 0  lost 0  written 74.2 MB  file drive.mcap
// and, while the last seconds are kept,
//   frames 120  left out 0  incomplete 0  missing 0  lost 0  kept 10.0 s, 62.0 MB  files 0
std::string FormatProgress(const IntakeCounts& counts, const FrameStreamCounts& stream,
                           const RecorderState& state, bool keeps);

// The last line: "120 frames, 74.2 MB in 1 file; left out 0, incomplete 0, missing 0, lost 0".
std::string FormatEnd(const IntakeCounts& counts, const FrameStreamCounts& stream,
                      const RecorderState& state);

}  // namespace kerul::lidar::record
