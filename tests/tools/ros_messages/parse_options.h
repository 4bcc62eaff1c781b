// A command line that has only the options under test.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

namespace kerul::lidar::ros {

// What the command line complains about; empty when it takes the arguments.
template <class Options>
std::string Parse(void (*add)(CLI::App&, Options&), std::vector<std::string> arguments,
                  Options& options) {
  CLI::App app;
  add(app, options);
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    return error.what();
  }
  return "";
}

}  // namespace kerul::lidar::ros
