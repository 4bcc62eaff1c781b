// Settings of the node that a story can be told under, by the names of their fields.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <variant>
#include <vector>

#include "config/default_config.h"

namespace kerul::lidar::story {

// A setting that changes what is published, and its place in a configuration.
struct Setting {
  std::string name;  // with the names of the records around it: "bloom_suppress_calib.min_n"
  std::variant<bool*, std::uint16_t*, std::int32_t*, float*, std::vector<float>*> place;
  std::int64_t least = 0;  // of a whole number
  std::int64_t most = 0;
};

// All of them, in the order of the records. They point into `config`.
std::vector<Setting> SettingsOf(DefaultConfig& config);

// "true", "4", "0.055"; of a list its different values in turn.
std::string TextOf(const Setting& setting);

// `assignment` is "name=value": true or false, a whole number, a finite decimal number; a list
// takes the one value for all its entries. Throws std::invalid_argument that names the nearest
// setting for a wrong name, and what is allowed for a wrong value.
void ApplySetting(const std::string& assignment, DefaultConfig& config);

// A line for each setting: name, kind, value.
void WriteSettings(std::ostream& out, const DefaultConfig& config);

}  // namespace kerul::lidar::story
