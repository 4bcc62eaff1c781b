// What the tests of whole programs share: the programs, a directory and a network of their own.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "sensor_simulator/calibration_blobs.h"
#include "support/child_process.h"
#include "support/isolation.h"
#include "support/temp_dir.h"

namespace kerul::lidar::testing {

inline const std::string kNodeProgram = KERUL_BINARY_DIR "/lidar_node";
inline const std::string kSimulatorProgram = KERUL_BINARY_DIR "/tools/sensor_simulator";

// The simulated sensor's name with the default serial number.
inline const std::string kSensorId = "SIM-0001";

// Where the node looks for its sensor; the port of the command service there.
const std::string& SensorIp();
inline constexpr std::uint16_t kSensorPort = 9347;

// The calibration of the simulated sensor with the default serial number; made once.
const simulator::CalibrationBlobs& SensorBlobs();

// A working directory for the programs.
class ProcessTest : public ::testing::Test {
 protected:
  const std::filesystem::path& Directory() const noexcept { return directory_.path(); }
  std::unique_ptr<ChildProcess> StartNode(const std::vector<std::string>& arguments = {}) const;
  std::unique_ptr<ChildProcess> StartSimulator(const std::vector<std::string>& arguments) const;

 private:
  TempDir directory_;
};

// And a network and a shared memory. Skipped where namespaces are not permitted.
class IsolatedProcessTest : public ProcessTest {
 protected:
  void SetUp() override;

  // Starts a node on the sensor's calibration in a directory and waits until it runs.
  std::unique_ptr<ChildProcess> StartCalibratedNode();

  // The name of the sensor's directory, which holds the calibration.
  std::string CalibrationDirectory() const;

  Isolation isolation_;
};

// Waits until the node's bring-up is over: the worker exists and the main thread sleeps until it
// ends. False when time or process end before, the latter at once.
bool WaitUntilRunning(const ChildProcess& node, std::chrono::milliseconds timeout = kPatience);

// Polls until `done` is true. False when time ends first.
template <typename Condition>
bool WaitUntil(Condition done, std::chrono::milliseconds timeout = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace kerul::lidar::testing
