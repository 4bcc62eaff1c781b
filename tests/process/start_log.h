// The node's start-up log with the default configuration, line by line.
#pragma once

#include <string>

#include "support/start_lines.h"

namespace kerul::lidar::testing {

inline const StartLines kDefaultNode("QNDR_001_node");

// From the first line to the one before the calibration. `cali_path` empty: from the sensor.
// Opens a socket of its own to learn how much buffer the system grants.
std::string OpeningLines(const std::string& cali_path);

// The warning that says where the calibration comes from; `cali_path` as above.
std::string LoadingLine(const std::string& cali_path);

// What follows a calibration that was loaded: label is "online", "local_cache" or "bin".
std::string LoadedLines(const std::string& label, const std::string& lidar_id);

// The whole log of a start.
inline std::string StartLog(const std::string& cali_path, const std::string& label,
                            const std::string& lidar_id) {
  return OpeningLines(cali_path) + LoadingLine(cali_path) + LoadedLines(label, lidar_id);
}

// What a start that reads the sensor's 661 pages says on standard error.
std::string ProgressLines();
// Standard error without them.
std::string WithoutProgress(const std::string& err);

// What a node prints when it goes, whether its start failed or it was interrupted.
inline const std::string kClosingLines = "SocketSource::Close()\nSource::Close()\n";

// The whole log of a start that fails where the calibration is loaded; `more` follows the warning.
inline std::string FailedStartLog(const std::string& cali_path, const std::string& more = "") {
  return OpeningLines(cali_path) + LoadingLine(cali_path) + more + kClosingLines;
}

// The log without the lines of closed frames. These come whenever a frame ends: an interrupt's line
// and the closing lines may have one between them, or some, or none.
std::string WithoutFrameLines(const std::string& log);

// Standard error without what a node says of lost packets: a machine under load loses some.
std::string WithoutLosses(const std::string& err);

}  // namespace kerul::lidar::testing
