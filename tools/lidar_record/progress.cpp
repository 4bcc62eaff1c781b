#include "lidar_record/progress.h"

#include <cstdio>

namespace kerul::lidar::record {
namespace {

std::string OneDecimal(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Megabytes(std::uint64_t bytes) {
  return OneDecimal(static_cast<double>(bytes) / 1e6) + " MB";
}

}  // namespace

std::string FormatProgress(const IntakeCounts& counts, const FrameStreamCounts& stream,
                           const RecorderState& state, bool keeps) {
  const std::string line =
      "frames " + std::to_string(counts.frames) + "  left out " + std::to_string(counts.left_out) +
      "  incomplete " + std::to_string(stream.incomplete) + "  missing " +
      std::to_string(stream.missing_frames) + "  lost " + std::to_string(stream.lost_packets);
  if (keeps) {
    return line + "  kept " + OneDecimal(state.kept_seconds) + " s, " +
           Megabytes(state.kept_bytes) + "  files " + std::to_string(state.files);
  }
  const std::string file = state.path.empty() ? "" : "  file " + state.path;
  return line + "  written " + Megabytes(state.bytes) + file;
}

std::string FormatEnd(const IntakeCounts& counts, const FrameStreamCounts& stream,
                      const RecorderState& state) {
  return std::to_string(state.messages) + " frames, " + Megabytes(state.bytes) + " in " +
         std::to_string(state.files) + (state.files == 1 ? " file" : " files") + "; left out " +
         std::to_string(counts.left_out) + ", incomplete " + std::to_string(stream.incomplete) +
         ", missing " + std::to_string(stream.missing_frames) + ", lost " +
         std::to_string(stream.lost_packets);
}

}  // namespace kerul::lidar::record
