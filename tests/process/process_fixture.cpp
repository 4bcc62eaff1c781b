#include "process_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "config/default_config.h"
#include "sensor_simulator/frame_simulator.h"

namespace kerul::lidar::testing {
namespace {

namespace fs = std::filesystem;

std::unique_ptr<ChildProcess> Start(const std::string& program,
                                    const std::vector<std::string>& arguments,
                                    const fs::path& directory) {
  if (access(program.c_str(), X_OK) != 0) throw std::runtime_error(program + " is not built");
  std::vector<std::string> command{program};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<ChildProcess>(std::move(command), directory);
}

// The letter of a thread's state: R runs or wants to, S sleeps; ' ' when it has gone.
char ThreadState(pid_t pid, const std::string& thread) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/task/" + thread + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::size_t name_end = text.rfind(')');
  return name_end == std::string::npos || name_end + 2 >= text.size() ? ' ' : text[name_end + 2];
}

// The node has made the thread that receives. A sanitizer's own threads have other names.
bool HasWorker(pid_t pid) {
  std::error_code gone;
  for (const auto& thread :
       fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm") >> std::ws, name);
    if (name == "lidar_worker") return true;
  }
  return false;
}

}  // namespace

const std::string& SensorIp() { return default_config::kConfig.lidar_ip; }

const simulator::CalibrationBlobs& SensorBlobs() {
  static const simulator::CalibrationBlobs blobs =
      simulator::MakeBlobs(simulator::SimulatorOptions{});
  return blobs;
}

std::unique_ptr<ChildProcess> ProcessTest::StartNode(
    const std::vector<std::string>& arguments) const {
  return Start(kNodeProgram, arguments, Directory());
}

std::unique_ptr<ChildProcess> ProcessTest::StartSimulator(
    const std::vector<std::string>& arguments) const {
  return Start(kSimulatorProgram, arguments, Directory());
}

void IsolatedProcessTest::SetUp() {
  if (!isolation_.Fault().empty()) GTEST_SKIP() << isolation_.Fault();
}

std::string IsolatedProcessTest::CalibrationDirectory() const {
  if (!fs::exists(Directory() / kSensorId)) simulator::WriteBlobs(SensorBlobs(), Directory());
  return kSensorId;
}

std::unique_ptr<ChildProcess> IsolatedProcessTest::StartCalibratedNode() {
  std::unique_ptr<ChildProcess> node = StartNode({"--cali_path", CalibrationDirectory()});
  EXPECT_TRUE(WaitUntilRunning(*node)) << node->Out() << node->Err();
  return node;
}

bool WaitUntilRunning(const ChildProcess& node, std::chrono::milliseconds timeout) {
  const std::string main_thread = std::to_string(node.pid());
  bool runs = false;
  // Z: it has ended, and its parent has not asked for the status yet.
  const auto ended = [&] {
    const char state = ThreadState(node.pid(), main_thread);
    return state == 'Z' || state == ' ';
  };
  const auto ready = [&] {
    runs = HasWorker(node.pid()) && ThreadState(node.pid(), main_thread) == 'S';
    return runs || ended();
  };
  WaitUntil(ready, timeout);
  return runs;
}

}  // namespace kerul::lidar::testing
