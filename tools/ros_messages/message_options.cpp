#include "ros_messages/message_options.h"

#include <CLI/CLI.hpp>
#include <map>

#include "support/number_options.h"

namespace kerul::lidar::ros {

void AddMessageOptions(CLI::App& app, MessageOptions& options) {
  app.add_option("--frame-id", options.frame_id,
                 "Coordinate frame named in the messages (default lidar)");
  app.add_flag("--valid-only", options.valid_only,
               "One line of the points that there are, instead of 216 x 288 with NaN");
  const std::map<std::string, EchoChoice> choices{
      {"first", EchoChoice::kFirst}, {"second", EchoChoice::kSecond}, {"both", EchoChoice::kBoth}};
  app.add_option_function<std::string>(
         "--echo",
         [&options, choices](const std::string& name) { options.echoes = choices.at(name); },
         "first (default), second, or both, one above the other")
      ->check(CLI::IsMember({"first", "second", "both"}));
  app.add_option("--every-row", options.every_row, "Keep every N-th row (default 1)")
      ->check(WholeNumber(1, kFrameRows));
  app.add_option("--every-col", options.every_col, "Keep every N-th column (default 1)")
      ->check(WholeNumber(1, kFrameCols));
  app.add_option_function<std::string>(
      "--mask",
      [&options](const std::string& path) {
        std::string error;
        if (!ReadMask(path, options.masked, error)) {
          throw CLI::ValidationError("--mask", path + ": " + error);
        }
      },
      "PNG of 288 x 216 pixels; black leaves a pixel out, for example the own vehicle");
}

}  // namespace kerul::lidar::ros
