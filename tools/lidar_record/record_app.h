// The recorder as a whole.
#pragma once

#include <atomic>
#include <iosfwd>

#include "lidar_record/record_options.h"

namespace kerul::lidar::record {

// What signals ask for.
struct RecordRequests {
  std::atomic<bool> stop{false};
  std::atomic<int> saves{0};  // of what is kept, not yet begun
};

// Records until a limit is reached or a stop is asked for. Progress goes to `out` once a second,
// one line over the other if `overwrite_status`; failures go to `err`. Gives the exit status: 0
// when everything was written, and at least one frame unless the program only waited for requests.
int RunRecord(const RecordOptions& options, RecordRequests& requests, bool overwrite_status,
              std::ostream& out, std::ostream& err);

}  // namespace kerul::lidar::record
