#include "tools/wireshark/tshark_test_base.h"

#include <chrono>
#include <sstream>

#include "support/child_process.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

// 100,000 packets take tens of seconds on a slow machine.
constexpr std::chrono::minutes kTsharkPatience{8};

}  // namespace

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

void TsharkTest::SetUp() {
  const fs::path plugins = directory_.path() / ".local/lib/wireshark";
  fs::create_directories(plugins);
  fs::create_directory_symlink(KERUL_SOURCE_DIR "/tools/wireshark", plugins / "plugins");
  ChildProcess version({"env", "tshark", "--version"}, directory_.path());
  ASSERT_EQ(version.WaitForExit(), 0)
      << "tshark is missing: scripts/install_dependencies.sh test installs it. " << version.Err();
  ASSERT_NE(Run({"-G", "protocols"}).find("kerul_command"), std::string::npos);
}

std::string TsharkTest::Run(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command{"env", "HOME=" + directory_.path().string(), "TZ=UTC", "tshark"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  ChildProcess tshark(command, directory_.path());
  EXPECT_EQ(tshark.WaitForExit(kTsharkPatience), 0) << tshark.Err();
  EXPECT_EQ(tshark.Err().find("Lua"), std::string::npos) << tshark.Err();
  return tshark.Out();
}

FieldTable TsharkTest::Fields(const std::vector<std::string>& fields,
                              const std::vector<std::string>& more) const {
  std::vector<std::string> arguments{"-r", CapturePath().string(), "-T", "fields"};
  for (const std::string& field : fields) arguments.insert(arguments.end(), {"-e", field});
  arguments.insert(arguments.end(), more.begin(), more.end());
  FieldTable table;
  std::istringstream lines(Run(arguments));
  for (std::string line; std::getline(lines, line);) table.push_back(Split(line, '\t'));
  return table;
}

FieldTable TsharkTest::Fields(const FrameList& frames, const std::vector<std::string>& fields,
                              const std::vector<std::string>& more) const {
  frames.Write(CapturePath());
  return Fields(fields, more);
}

std::size_t TsharkTest::Count(const std::string& filter) const {
  return Fields({"frame.number"}, {"-Y", filter}).size();
}

}  // namespace kerul::lidar::testing
