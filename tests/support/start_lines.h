// The lines that a node called A_node logs at its start with the settings of TestConfig.
#pragma once

#include <sstream>
#include <string>

#include "config/default_config.h"

namespace kerul::lidar::testing {

inline std::string Plain(const std::string& text) { return "[LidarNode][A_node] " + text + "\n"; }
inline std::string Coloured(const std::string& colour, const std::string& text) {
  return colour + "[LidarNode][A_node] " + text + "\033[0m\n";
}
inline std::string Green(const std::string& text) { return Coloured("\033[32m", text); }
inline std::string Yellow(const std::string& text) { return Coloured("\033[33m", text); }
inline std::string Red(const std::string& text) { return Coloured("\033[31m", text); }

// The lines of the node out of a start-up log. Input and output have lines too: the worker opens
// the input socket anew at every look, so that their number is not given.
inline std::string NodeLines(const std::string& log) {
  std::istringstream lines(log);
  std::string kept;
  std::string line;
  while (std::getline(lines, line)) {
    const bool is_nodes = line.find("[LidarNode]") != std::string::npos;
    if (is_nodes || line.rfind("[INFO]", 0) == 0) kept += line + "\n";
  }
  return kept;
}

// Up to the calibration.
inline std::string OpeningNodeLines(const DefaultConfig& config) {
  return Plain("recv=:0") +
         Plain("output=SHM name=" + config.shm_name + " size=" + std::to_string(config.shm_size));
}

// Tables that are taken from the configuration whatever the source of the calibration.
inline const std::string kCommonLines =
    Green("shot_times load succssed (default_tables, 48 entries)") +
    Green("env normal load succssed (default_tables)") +
    Green("env high load succssed (default_tables)") +
    Red("env cogt load failed (default_tables empty), cogt compensation disabled") +
    Green("bloom load succssed (default_tables)") + Green("bloom filter enabled") +
    Green("cogw filter load succssed (default_tables)") + Green("shot_noise enabled") +
    Green("high-threshold map load succssed (default_tables)") +
    Green("detect threshold load succssed (default_tables, bins=513)");

}  // namespace kerul::lidar::testing
