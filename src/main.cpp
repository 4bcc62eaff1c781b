// Process entry: command line, log, interrupt, one node.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "MIPI_reader/node/lidar_node.h"
#include "calibration/para2_loading.h"
#include "command_line.h"
#include "config/default_config.h"
#include "config/node_settings.h"
#include "log_output.h"
#include "standard_streams.h"

namespace {

// Puts the decimal digits of a non-negative number at `out` and gives their end.
char* AppendDecimal(char* out, int number) noexcept {
  char digits[12];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + number % 10);
    number /= 10;
  } while (number > 0);
  while (count > 0) *out++ = digits[--count];
  return out;
}

// While main alone logs, a line may wait that long for room. The worker never waits.
constexpr int kLogPatienceMs = 250;

// Where the handler writes; null before the log is there.
std::atomic<const kerul::lidar::LogDescriptor*> log_out{nullptr};
static_assert(std::atomic<const kerul::lidar::LogDescriptor*>::is_always_lock_free,
              "used by a signal handler");

// One write for the text: streams are not async-signal-safe. If nobody reads, the text is dropped.
void WriteInterruptLine(int signal_number) noexcept {
  constexpr char kHead[] = "Interrupt signal (";
  constexpr char kTail[] = ") received.\n";
  char line[sizeof(kHead) + sizeof(kTail) + 12];
  char* end = line;
  std::memcpy(end, kHead, sizeof(kHead) - 1);
  end = AppendDecimal(end + sizeof(kHead) - 1, signal_number);
  std::memcpy(end, kTail, sizeof(kTail) - 1);
  end += sizeof(kTail) - 1;
  const kerul::lidar::LogDescriptor* log = log_out;
  if (log != nullptr) log->Write({line, static_cast<std::size_t>(end - line)}, kLogPatienceMs);
}

// `nodes` does not change, and the handler may walk it, only while running. Before, main is still
// filling it. After, process exit destroys it, and a reference taken then would destroy the node
// twice.
enum class Phase { kStarting, kRunning, kEnding };
std::atomic<Phase> phase{Phase::kStarting};
std::atomic<bool> interrupted{false};
static_assert(std::atomic<Phase>::is_always_lock_free, "used by a signal handler");
static_assert(std::atomic<bool>::is_always_lock_free, "used by a signal handler");

void StopNodes() noexcept {
  for (const std::shared_ptr<LidarNode>& entry : nodes) {
    const std::shared_ptr<LidarNode> node = entry;
    node->RequestStop();
  }
}

// The first interrupt of a start is kept: the start ends after the sensor's page in hand, or the
// node as soon as it is there. The second does not wait for that.
void signal_interrupt(int signal_number) {
  const int saved_errno = errno;
  const bool again = interrupted.exchange(true);
  kerul::lidar::load_is_interrupted = true;
  if (phase == Phase::kRunning) StopNodes();
  WriteInterruptLine(signal_number);
  if (phase == Phase::kStarting && again) {
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);  // delivered as the handler returns
  }
  errno = saved_errno;
}

// Each further node of this computer is this file once more, with a name and settings of its own.
kerul::lidar::DefaultConfig Settings() {
  kerul::lidar::DefaultConfig config = kerul::lidar::default_config::kConfig;
#ifdef KERUL_NODE_NAME
  config.lidar_name = KERUL_NODE_NAME;
  config.shm_name += "_" KERUL_NODE_NAME;
  kerul::lidar::ChangeSettings(config);
#endif
  return config;
}

int RunNode(int argc, char** argv, kerul::lidar::LogOutput& log) {
  const kerul::lidar::CommandLine command_line = kerul::lidar::ParseCommandLine(argc, argv);
  if (command_line.exit_status) return *command_line.exit_status;
  const std::string& cali_path = command_line.cali_path;

  const kerul::lidar::DefaultConfig config = Settings();
  std::cout << "[INFO] using embedded default config for lidar \"" << config.lidar_name
            << "\", cali_path=" << (cali_path.empty() ? "(RCX)" : cali_path) << std::endl;

  if (!cali_path.empty()) {
    try {
      kerul::lidar::ValidateCaliPath(cali_path);
    } catch (const std::exception& error) {
      std::cerr << "[ERROR] invalid --cali_path: " << error.what() << std::endl;
      return 1;
    }
  }

  try {
    nodes.push_back(std::make_shared<LidarNode>(config.lidar_name + "_node", config, cali_path));
  } catch (const kerul::lidar::LoadInterrupted& read) {
    std::cerr << "[INFO] interrupted: " << read.pages_read << " of " << read.pages
              << " pages of the calibration read, nothing kept" << std::endl;
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "[ERROR] failed to start LidarNode: " << error.what() << std::endl;
    return 1;
  }

  log.SetPatience(0);
  phase = Phase::kRunning;
  if (interrupted) StopNodes();
  for (const std::shared_ptr<LidarNode>& entry : nodes) {
    const std::shared_ptr<LidarNode> node = entry;
    node->JoinWorker();
  }
  phase = Phase::kEnding;  // the worker has ended: only this thread takes signals now
  log.SetPatience(kLogPatienceMs);
  nodes.clear();  // the closing lines
  return 0;       // deliberately also for a source that closed by itself
}

}  // namespace

int main(int argc, char** argv) {
  kerul::lidar::OpenMissingStandardStreams();
  auto& log = *new kerul::lidar::LogOutput;  // outlives main
  log.SetPatience(kLogPatienceMs);
  log_out = &log.Out();
  kerul::lidar::EndInTimeAfterUncaughtExceptions();
  std::signal(SIGINT, signal_interrupt);
  const int status = RunNode(argc, argv, log);
  log.Finish();
  return status;
}
