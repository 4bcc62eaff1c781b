// The lines that a node logs at its start.
#pragma once

#include <sstream>
#include <string>

#include "config/default_config.h"

namespace kerul::lidar::testing {

// Of the node with the given name.
class StartLines {
 public:
  explicit StartLines(const std::string& node) : prefix_("[LidarNode][" + node + "] ") {}

  // Uncoloured, for success, a warning, a failure.
  std::string Plain(const std::string& text) const { return prefix_ + text + "\n"; }
  std::string Green(const std::string& text) const { return Coloured("\033[32m", text); }
  std::string Yellow(const std::string& text) const { return Coloured("\033[33m", text); }
  std::string Red(const std::string& text) const { return Coloured("\033[31m", text); }

  // Of tables that come from the configuration whatever the source of the calibration.
  std::string OfTables() const {
    return Green("shot_times load succssed (default_tables, 48 entries)") +
           Green("env normal load succssed (default_tables)") +
           Green("env high load succssed (default_tables)") +
           Red("env cogt load failed (default_tables empty), cogt compensation disabled") +
           Green("bloom load succssed (default_tables)") + Green("bloom filter enabled") +
           Green("cogw filter load succssed (default_tables)") + Green("shot_noise enabled") +
           Green("high-threshold map load succssed (default_tables)") + Last();
  }

  // What follows a calibration from the sensor or its files: label is "online", "local_cache" or
  // "bin".
  std::string OfCalibration(const std::string& label) const {
    return Green("angle calib load succssed (" + label + ", shape=3x216x288)") +
           Green("cogh_efficiant load succssed (para2/default_tables)") +
           Green("highrefl check enabled") +
           Green("dist calib load succssed (lidar/bin, source=" + label + ")") +
           Green("dist curve high load succssed (embedded)") +
           Green("retro calib load succssed (lidar/bin, source=" + label + ")") + OfTables();
  }

  // The last line of a start: waiting for it is waiting for the whole log.
  std::string Last() const {
    return Green("detect threshold load succssed (default_tables, bins=513)");
  }

 private:
  std::string Coloured(const char* colour, const std::string& text) const {
    return colour + prefix_ + text + "\033[0m\n";
  }

  std::string prefix_;
};

// The node of NodeFixture.
inline const StartLines kANode("A_node");

// The lines of the node out of a start-up log. Input and output have lines too: the worker opens
// the input socket again at every read, so their number is not fixed.
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

// Those of kANode up to the calibration, with the settings of TestConfig.
inline std::string OpeningNodeLines(const DefaultConfig& config) {
  return kANode.Plain("recv=:0") + kANode.Plain("output=SHM name=" + config.shm_name +
                                                " size=" + std::to_string(config.shm_size));
}

}  // namespace kerul::lidar::testing
