// Numbers that are none, or too large, at every numeric option of every program.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "process_fixture.h"

namespace kerul::lidar::testing {
namespace {

using ::testing::HasSubstr;

struct Numeric {
  std::string program;
  std::vector<std::string> before;  // arguments that the option needs
  std::string option;
};

const std::vector<Numeric>& AllNumericOptions() {
  static const std::vector<Numeric> all = [] {
    std::vector<Numeric> options;
    for (const char* option : {"--udp", "--seconds", "--frames", "--max-range"}) {
      options.push_back({"lidar_view", {}, option});
    }
    for (const char* option :
         {"--seed", "--serial", "--rate", "--frames", "--seconds", "--first-frame", "--loop",
          "--dest-port", "--loss", "--duplicate", "--reorder", "--frame-jump", "--foreign",
          "--other-version", "--short", "--rcx-port"}) {
      options.push_back({"sensor_simulator", {}, option});
    }
    for (const char* option :
         {"--rcx-connection", "--rcx-exchange", "--rcx-close-after", "--rcx-header-piece",
          "--rcx-body-piece", "--rcx-piece-gap", "--rcx-command", "--rcx-return-code",
          "--rcx-announce", "--rcx-front-bytes", "--rcx-missing-bytes", "--rcx-flip-at"}) {
      options.push_back({"sensor_simulator", {"--rcx-port", "0"}, option});
    }
    options.push_back(
        {"sensor_simulator", {"--rcx-port", "0", "--rcx-flip-at", "0"}, "--rcx-flip-mask"});
    options.push_back({"truth_report", {"accuracy"}, "--frames"});
    options.push_back({"truth_report", {"filters"}, "--frames"});
    return options;
  }();
  return all;
}

class NumberOptions : public ProcessTest {};

TEST_F(NumberOptions, WhatIsNoNumberOrTooLargeIsRefusedByAll) {
  int refused = 0;
  for (const Numeric& numeric : AllNumericOptions()) {
    for (const char* value : {"-1", "99999999999999999999", "nan", "inf", "1e999", "1x", ""}) {
      // A long time, a far range or a high rate are no mistakes.
      const bool real = numeric.option == "--seconds" || numeric.option == "--max-range" ||
                        numeric.option == "--rate";
      if (real && std::string(value) == "99999999999999999999") continue;
      std::vector<std::string> command{std::string(KERUL_BINARY_DIR "/tools/") + numeric.program};
      command.insert(command.end(), numeric.before.begin(), numeric.before.end());
      command.push_back(numeric.option + "=" + value);
      ChildProcess program(command, Directory());
      const std::optional<int> status = program.WaitForExit(std::chrono::seconds(20));
      ASSERT_TRUE(status.has_value()) << numeric.option << "=" << value << " is accepted";
      EXPECT_NE(*status, 0) << numeric.option << "=" << value;
      EXPECT_THAT(program.Err(), HasSubstr(numeric.option)) << value;
      ++refused;
    }
  }
  EXPECT_GE(refused, 35 * 6);
}

}  // namespace
}  // namespace kerul::lidar::testing
