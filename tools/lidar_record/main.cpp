// Records the published point stream as MCAP files, and reads such files.

#include <unistd.h>

#include <csignal>
#include <iostream>

#include "lidar_record/extract.h"
#include "lidar_record/file_info.h"
#include "lidar_record/record_app.h"
#include "standard_streams.h"

namespace {

kerul::lidar::record::RecordRequests requests;
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "set by signal handlers");

}  // namespace

int main(int argc, char** argv) {
  using namespace kerul::lidar::record;
  kerul::lidar::OpenMissingStandardStreams();
  CommandLine line;
  int exit_status = 0;
  if (!ParseCommandLine(argc, argv, line, exit_status)) return exit_status;
  if (line.command == Command::kInfo) return RunInfo(line.info_file, std::cout, std::cerr);
  if (line.command == Command::kExtract) return RunExtract(line.extract, std::cerr);
  std::signal(SIGINT, [](int) { requests.stop = true; });
  std::signal(SIGTERM, [](int) { requests.stop = true; });
  // Without --on-signal nothing is kept that could be written.
  const bool saves = line.record.mode == Mode::kOnSignal;
  std::signal(SIGUSR1, saves ? [](int) { ++requests.saves; } : SIG_IGN);
  // A file that may not grow is told of like a full disk, not by the signal's end of the process.
  std::signal(SIGXFSZ, SIG_IGN);
  return RunRecord(line.record, requests, isatty(STDOUT_FILENO) != 0, std::cout, std::cerr);
}
